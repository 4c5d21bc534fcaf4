// Another process that does the same over and over, as fast as it can.
#ifndef IXFS_TESTS_RACE_H
#define IXFS_TESTS_RACE_H

#include "child_process.h"

#include <chrono>
#include <cstdlib>
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

// How long a race goes on: IXFS_RACE_SECONDS, or else 10.
class RaceTime
{
public:
    bool is_over() const { return std::chrono::steady_clock::now() >= end_; }

private:
    static std::chrono::seconds length()
    {
        const char* const seconds = std::getenv("IXFS_RACE_SECONDS");
        return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 10);
    }

    std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + length();
};

#endif
