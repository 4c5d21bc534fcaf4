#include "console.h"

#include "standard_streams.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

ExitStatus print(const std::string& text)
{
    if (write_all(STDOUT_FILENO, text))
        return exit_success;
    complain("standard output: " + std::generic_category().message(errno));
    return exit_failure;
}

void complain(const std::string& text)
{
    write_all(STDERR_FILENO, "ixfsctl: " + text + "\n");
}
