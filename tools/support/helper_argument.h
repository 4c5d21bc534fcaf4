// Which values may reach the mount helper: the library passes them through the shell unquoted.
#ifndef IXFS_TOOLS_HELPER_ARGUMENT_H
#define IXFS_TOOLS_HELPER_ARGUMENT_H

#include <string>

// The check_... functions return what is wrong with a value, or an empty text. They never repeat
// the value, which may be a secret.

// Any argument of the helper: one word for the shell, and not an option for the helper.
std::string check_helper_argument(const std::string& value);

// A server name, which also becomes the name of the mount directory.
std::string check_server_name(const std::string& value);

// Server name and longer credential together: the command line must not be cut.
std::string check_command_length(const std::string& server, const std::string& credential);

#endif
