// A preparation by a process of its own, so that one that hangs or dies fails its test alone.
#ifndef IXFS_TESTS_ATTEMPT_H
#define IXFS_TESTS_ATTEMPT_H

#include "ixfs_vmir.h"

#include <chrono>
#include <string>
#include <vector>

struct Order {
    MountCreds creds;
    std::vector<std::string> disks;
    bool new_disk_uuids = false;
};

struct Attempt {
    bool hung = false;   // was killed when its time was over
    int exit_status = 0; // the process's: 0, or the signal that ended it, negated
    int status = -1;     // the preparation's; -1 where it did not end
    std::string config;
    std::vector<std::string> out;
    int pauses = 0;           // sleeps, which take no time
    int descriptors_left = 0; // open ones, more than before
    long memory = 0;          // kB by which the most memory in use grew
};

// Prepares, and hands the lines to the current LogRecorder when the process has ended.
Attempt prepare_elsewhere(const Order& order, std::chrono::seconds limit);

#endif
