#include "process_state.h"

#include "interpose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>

std::vector<SemaphoreSet> semaphore_sets()
{
    const interpose::RealCalls of_the_test;
    std::ifstream table("/proc/sysvipc/sem");
    if (!table)
        throw std::runtime_error("no /proc/sysvipc/sem");
    constexpr auto rest_of_line = std::numeric_limits<std::streamsize>::max();
    table.ignore(rest_of_line, '\n'); // the heading
    std::vector<SemaphoreSet> sets;
    long key = 0;
    SemaphoreSet set{};
    while (table >> std::dec >> key >> set.id >> std::oct >> set.permissions) {
        table.ignore(rest_of_line, '\n');
        sets.push_back(set);
    }
    return sets;
}

std::vector<std::string> open_descriptors()
{
    const interpose::RealCalls of_the_test;
    namespace fs = std::filesystem;
    std::vector<std::string> targets;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd"))
        targets.push_back(fs::read_symlink(entry.path()));
    std::sort(targets.begin(), targets.end());
    return targets;
}

long process_status(const std::string& field)
{
    const interpose::RealCalls of_the_test;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return std::stol(line.substr(field.size() + 1));
    }
    throw std::runtime_error("no " + field + " in /proc/self/status");
}

NoDescriptorsLeft::~NoDescriptorsLeft()
{
    EXPECT_EQ(open_descriptors(), before_);
}

NoLocksLeft::~NoLocksLeft()
{
    EXPECT_EQ(semaphore_sets().size(), 0);
}
