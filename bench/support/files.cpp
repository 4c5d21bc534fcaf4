#include "files.h"

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

// The helper knows this path, too.
WorkFolder::WorkFolder(const std::string& name) : path_("/usr/varnis/var/bench/" + name)
{
    fs::create_directories(path_);
}

WorkFolder::~WorkFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void write_file(const std::string& path, const std::string& content)
{
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << content;
    file.close();
}

std::string read_file(const std::string& path)
{
    std::string content(fs::file_size(path), '\0');
    std::ifstream(path, std::ios::binary)
        .read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}
