// Text of scripts.
#ifndef IXFS_COMPLETION_TEXT_H
#define IXFS_COMPLETION_TEXT_H

#include <string>
#include <vector>

namespace completion
{

// With a blank between two words.
std::string joined(const std::vector<std::string>& words);

// A script in which @COMMAND@ stood for the front of its functions' names, as all functions of a shell share
// one set of names.
std::string with_prefix(std::string script, const std::string& prefix);

} // namespace completion

#endif
