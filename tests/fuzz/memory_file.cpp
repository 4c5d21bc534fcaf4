#include "memory_file.h"

#include <cerrno>
#include <system_error>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Returns what a call returned, unless that is its failure.
template <typename Result>
Result checked(Result result, const char* call)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), call);
    return result;
}

} // namespace

MemoryFile::MemoryFile()
    : descriptor_(checked(memfd_create("ixfs-fuzz", MFD_CLOEXEC), "memfd_create")),
      path_("/proc/self/fd/" + std::to_string(descriptor_))
{
}

MemoryFile::~MemoryFile()
{
    close(descriptor_);
}

void MemoryFile::write(const std::string& bytes) const
{
    checked(ftruncate(descriptor_, 0), "ftruncate");
    checked(pwrite(descriptor_, bytes.data(), bytes.size(), 0), "pwrite");
}

std::string MemoryFile::read() const
{
    struct stat status {
    };
    checked(fstat(descriptor_, &status), "fstat");
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    checked(pread(descriptor_, bytes.data(), bytes.size(), 0), "pread");
    return bytes;
}
