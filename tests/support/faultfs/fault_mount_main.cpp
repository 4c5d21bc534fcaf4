// The main program of tests that need FaultMount: it skips them all where none can be mounted.
#include "fault_mount.h"

#include <cstdio>

#include <gmock/gmock.h>

int main(int argc, char** argv)
{
    constexpr int skipped = 77; // as ctest is told
    testing::InitGoogleMock(&argc, argv);
    const std::string obstacle = faultfs::FaultMount::obstacle();
    if (!obstacle.empty()) {
        std::printf("skipped: %s\n", obstacle.c_str());
        return skipped;
    }
    return RUN_ALL_TESTS();
}
