// Threads that the library starts, held and followed.
#ifndef IXFS_TESTS_HELD_THREADS_H
#define IXFS_TESTS_HELD_THREADS_H

#include "interpose.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include <gtest/gtest.h>

// Holds each thread that is started before its first instruction until it is let go, and tells when
// threads have ended. Holds on_pthread_create; start threads of the test's own before, with
// std::thread and the like, or they are held too. Its end waits for the threads.
class HeldThreads
{
public:
    HeldThreads() = default;
    ~HeldThreads()
    {
        let_go();
        EXPECT_TRUE(wait_for_end());
    }
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    // Lets all threads go on, those started later too.
    void let_go()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }

    // Waits until every thread started so far has run to its end. Returns whether that was within
    // 30 seconds.
    bool wait_for_end()
    {
        const interpose::RealCalls of_the_test;
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [this] { return running_ == 0; });
    }

    int started() const { return hook_.calls(); }

private:
    struct Start {
        HeldThreads* threads;
        void* (*function)(void*);
        void* argument;
    };

    static void* run(void* start)
    {
        const std::unique_ptr<Start> given(static_cast<Start*>(start));
        given->threads->wait_to_begin();
        void* const result = given->function(given->argument);
        given->threads->end();
        return result;
    }

    void wait_to_begin()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return !held_; });
    }

    void end()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        --running_;
        changed_.notify_all();
    }

    std::optional<int> create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*function)(void*), void* argument)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++running_;
        return pthread_create(thread, attributes, run, new Start{this, function, argument});
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = true;
    int running_ = 0; // started and not yet ended
    decltype(interpose::on_pthread_create)::Hook hook_ =
        interpose::on_pthread_create([this](auto... arguments) { return create(arguments...); });
};

#endif
