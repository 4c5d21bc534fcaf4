// A handle to ask the library with, which logs nothing.
#ifndef IXFS_PREPARE_SILENT_HANDLE_H
#define IXFS_PREPARE_SILENT_HANDLE_H

#include <ixfs.h>
#include <memory>
#include <new>

class SilentHandle
{
public:
    SilentHandle() : handle_(ixfs_init(0, nullptr, nullptr, nullptr, nullptr), ixfs_term)
    {
        if (handle_ == nullptr)
            throw std::bad_alloc();
    }

    _ixfs_control_t* get() const { return handle_.get(); }

private:
    std::unique_ptr<_ixfs_control_t, decltype(&ixfs_term)> handle_;
};

#endif
