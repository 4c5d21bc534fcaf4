#include "helper_argument.h"

#include <cstddef>
#include <linux/limits.h>

namespace
{

constexpr const char* allowed_characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                           "abcdefghijklmnopqrstuvwxyz"
                                           "0123456789"
                                           "._:=+/@%-";

// The library cuts a helper command line at 1,023 bytes. Its fixed parts, the port and the timeout
// come to less than 123; the rest is the credential and, twice, the server name: as an argument and
// at the end of the mount directory.
constexpr std::size_t max_variable_length = 900;

} // namespace

std::string check_helper_argument(const std::string& value)
{
    if (value.empty())
        return "must not be empty";
    if (value.front() == '-')
        return "must not begin with \"-\", which the mount helper would take for an option";
    if (value.find_first_not_of(allowed_characters) != std::string::npos)
        return "only letters, digits and ._:=+/@%- are allowed, since the mount helper is run "
               "through the shell";
    return "";
}

std::string check_server_name(const std::string& value)
{
    if (value == "." || value == ".." || value.find('/') != std::string::npos)
        return "must not be \".\" or \"..\" or hold a \"/\", since it becomes the name of the "
               "mount "
               "directory";
    if (value.find('=') != std::string::npos)
        return "must not hold a \"=\", since the mount helper reports it as a part of the mount "
               "point, which begins behind the last one";
    if (value.size() > NAME_MAX)
        return "is longer than a directory name may be (" + std::to_string(NAME_MAX) + " bytes)";
    return check_helper_argument(value);
}

std::string check_command_length(const std::string& server, const std::string& credential)
{
    if (2 * server.size() + credential.size() <= max_variable_length)
        return "";
    return "server name and credential are too long for the helper's command line: twice the one "
           "and the other must not exceed " +
           std::to_string(max_variable_length) + " bytes";
}
