// A standard stream that is written to without waiting for its reader.
#ifndef IXFS_PREPARE_OUTLET_H
#define IXFS_PREPARE_OUTLET_H

#include "open_descriptor.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>

// Keeps what the reader does not take yet. Who waits in write() sees no signal meanwhile, and a
// pager that nobody scrolls, or a stopped terminal, makes it wait for ever.
//
// One that is closed or broken is written to no less; error() says so.
class Outlet
{
public:
    // The process has the stream open.
    explicit Outlet(int stream);

    void write(std::string_view text);

    // What is left to be written, when descriptor() is writable.
    std::size_t left() const { return pending_.size(); }
    bool waits() const { return left() != 0; }
    int descriptor() const { return own_.is_open() ? own_.number() : stream_; }
    void go_on();

    // Writes the rest. With `patient` false it waits only as long as the reader takes something
    // every second, and then writes nothing any more.
    void finish(bool patient);

    int error() const { return error_; } // errno of the first failure, or 0

private:
    ssize_t write_some(std::string_view text) const;

    const int stream_;
    OpenDescriptor own_; // the same, without waiting; that must not be set for the caller's
    std::string pending_;
    int error_ = 0;
};

#endif
