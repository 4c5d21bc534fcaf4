// Another process that does the same over and over, as fast as it can.
#ifndef IXFS_TESTS_RACE_H
#define IXFS_TESTS_RACE_H

#include "child_process.h"
#include "cycle_count.h"

#include <chrono>
#include <functional>

#include <unistd.h>

// Runs until it is destroyed.
class Racer
{
public:
    explicit Racer(const std::function<void()>& act)
        : process_(STDERR_FILENO, [&act](ChildProcess::Parent&) -> int {
              for (;;)
                  act();
          })
    {
    }

private:
    ChildProcess process_;
};

// How long a race goes on: 5 seconds, or as many times that as cycle_count says.
class RaceTime
{
public:
    bool is_over() const { return std::chrono::steady_clock::now() >= end_; }

private:
    const std::chrono::steady_clock::time_point end_ =
        std::chrono::steady_clock::now() + std::chrono::seconds(cycle_count(5));
};

#endif
