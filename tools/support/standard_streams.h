// Standard input, output and error as file descriptors.
#ifndef IXFS_TOOLS_STANDARD_STREAMS_H
#define IXFS_TOOLS_STANDARD_STREAMS_H

#include <string_view>

// Makes the standard descriptors safe to work with. One that the caller left closed is taken, so
// that no file of the image is ever opened under its number, but using it still fails. A reader
// that goes away shows as a failed write: a signal would end the program with the image mounted.
void secure_standard_streams();

// Writes all of `text`. Returns false, with errno telling, when that cannot be done.
bool write_all(int descriptor, std::string_view text) noexcept;

#endif
