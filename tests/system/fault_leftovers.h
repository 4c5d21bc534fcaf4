// What a call leaves behind in the system.
#ifndef IXFS_TESTS_FAULT_LEFTOVERS_H
#define IXFS_TESTS_FAULT_LEFTOVERS_H

#include "fault_outcomes.h"

#include <string>
#include <vector>

// Whether a semaphore set may be left that nobody holds, and that its next user takes as it is. Who
// comes last with it is not always able to take it away.
enum class FreeLock { is_gone, may_be_left };

// Remembers what the process has, to compare it later.
class Leftovers
{
public:
    Leftovers();

    // Fails the test for each descriptor, process, thread, lock and mount that has come since, and
    // for what is mounted or locked at all, but for what must or may be left. Takes locks and
    // mounts away, so that the next run begins without them. Waits for threads that are on their
    // way out.
    void expect_none_but(MountedImage image, FreeLock lock) const;
    void expect_none() const { expect_none_but(MountedImage::is_gone, FreeLock::is_gone); }

private:
    std::vector<std::string> descriptors_;
    std::string children_;
    long threads_;
};

#endif
