// A log line as people may see it: on one line, without a credential, without what steers a
// terminal.
#ifndef IXFS_TOOLS_LOG_TEXT_H
#define IXFS_TOOLS_LOG_TEXT_H

#include <string>
#include <string_view>

// "ERR", "WRN" or "INF".
std::string_view severity_name(int severity);

// Replaces the word that follows "-cred" and blanks, of which newlines are some, by "***".
std::string mask_credential(std::string_view text);

// Control characters other than tabs become "\x..".
std::string escape_control_characters(std::string_view text);

// A message of the library as it is shown: masked, escaped, without the newline at its end.
std::string shown_message(std::string_view message);

#endif
