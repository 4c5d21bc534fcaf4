#include "scripts.h"

#include <fstream>
#include <iostream>

namespace completion
{

namespace
{

bool write_file(const char* path, const std::string& text)
{
    std::ofstream file(path);
    file << text << std::flush;
    if (!file)
        std::cerr << path << ": cannot be written\n";
    return !file.fail();
}

} // namespace

int write_scripts(const Command& command, int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " BASH_SCRIPT ZSH_SCRIPT\n";
        return 2;
    }
    const bool written =
        write_file(argv[1], bash_script(command)) && write_file(argv[2], zsh_script(command));
    return written ? 0 : 1;
}

} // namespace completion
