#include "credentials.h"

#include "helper_argument.h"
#include "text_lines.h"
#include "usage_error.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

namespace
{

// `source` names the stream in messages.
std::string read_line(std::istream& stream, const std::string& source)
{
    std::string line;
    std::getline(stream, line);
    if (stream.bad())
        throw UsageError(source + ": cannot be read");
    if (stream.fail())
        throw UsageError(source + ": credential is missing");
    return line;
}

std::string read_file(const std::string& path)
{
    std::ifstream file(path);
    const std::string name = shown_name(path);
    if (!file)
        throw UsageError(name + ": " + std::generic_category().message(errno));
    std::string credential = read_line(file, name);
    if (file.peek() != std::ifstream::traits_type::eof())
        throw UsageError(name + ": must hold the credential alone, on one line");
    return credential;
}

void check(const std::string& credential, const std::string& server, const std::string& which)
{
    std::string problem = check_helper_argument(credential);
    if (problem.empty())
        problem = check_command_length(server, credential);
    if (!problem.empty())
        throw UsageError(which + ": " + problem);
}

} // namespace

Credentials read_credentials(const CredentialSource& source)
{
    Credentials credentials;
    if (source.standard_input) {
        credentials.mount = read_line(std::cin, "standard input, line 1");
        credentials.unmount = read_line(std::cin, "standard input, line 2");
    } else if (!source.mount_file.empty()) {
        credentials.mount = read_file(source.mount_file);
        credentials.unmount = read_file(source.unmount_file);
    }
    return credentials;
}

void check_credentials(const Credentials& credentials, const std::string& server)
{
    check(credentials.mount, server, "mount credential");
    check(credentials.unmount, server, "unmount credential");
}
