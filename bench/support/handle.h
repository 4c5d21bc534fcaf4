// A handle of the library, ended with its owner.
#ifndef IXFS_BENCH_HANDLE_H
#define IXFS_BENCH_HANDLE_H

#include "counting_log.h"

#include <ixfs.h>

#include <memory>

using Handle = std::unique_ptr<_ixfs_control_t, void (*)(_ixfs_control_t*)>;

// Its log lines are counted.
inline Handle make_handle()
{
    return {ixfs_init(0, nullptr, count_line, nullptr, nullptr), ixfs_term};
}

#endif
