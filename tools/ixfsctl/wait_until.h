#ifndef IXFSCTL_WAIT_UNTIL_H
#define IXFSCTL_WAIT_UNTIL_H

#include <chrono>

// Waits until a descriptor can be read from, or until `end`. Returns whether it can.
bool is_ready_by(int descriptor, std::chrono::steady_clock::time_point end);

#endif
