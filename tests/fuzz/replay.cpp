// Gives a fuzz target the files that it is called with, and those in the folders among them: the
// seeds and findings, as an ordinary test.
#include "fuzz_target.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

constexpr unsigned int longest_run = 25; // seconds, as script/fuzz has it

void replay(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    std::string bytes(fs::file_size(path), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    std::fprintf(stderr, "%s\n", path.c_str());
    alarm(longest_run); // its signal ends the program: the last path says with which input
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

int replay_all(const fs::path& path)
{
    if (!fs::is_directory(path)) {
        replay(path);
        return 1;
    }
    int replayed = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        replayed += replay_all(entry);
    return replayed;
}

} // namespace

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i)
        replayed += replay_all(argv[i]);
    std::printf("%d inputs replayed\n", replayed);
    return replayed > 0 ? 0 : 1;
}
