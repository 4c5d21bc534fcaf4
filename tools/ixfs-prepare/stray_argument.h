// What to say about arguments that nobody asked for.
#ifndef IXFS_PREPARE_STRAY_ARGUMENT_H
#define IXFS_PREPARE_STRAY_ARGUMENT_H

#include <string>
#include <vector>

// `strays` are those of `arguments` that belong to no option; there is at least one. What may be a
// credential is not repeated, only the name of a long option.
std::string describe_stray_argument(const std::vector<std::string>& arguments,
                                    const std::vector<std::string>& strays);

#endif
