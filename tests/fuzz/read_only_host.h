// A thread that can change nothing of the host, whatever the library does in it.
#ifndef IXFS_FUZZ_READ_ONLY_HOST_H
#define IXFS_FUZZ_READ_ONLY_HOST_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

// The thread has a mount namespace of its own, in which all is read-only but /usr/varnis and one
// folder more. A library that followed a link out of an image could empty the host's "/" otherwise.
// Lives as long as the process.
class ReadOnlyHost
{
public:
    // writable  a folder, or empty for none
    explicit ReadOnlyHost(const std::string& writable);
    ReadOnlyHost(const ReadOnlyHost&) = delete;
    ReadOnlyHost& operator=(const ReadOnlyHost&) = delete;
    ~ReadOnlyHost() = delete;

    // Calls it on the thread, and returns when it has ended.
    void run(const std::function<void()>& function);

private:
    [[noreturn]] void serve(const std::string& writable);

    std::mutex mutex_;
    std::condition_variable changed_;
    const std::function<void()>* wanted_ = nullptr;
};

#endif
