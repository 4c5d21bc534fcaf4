// Another process that changes an image for as long as it is prepared.
#ifndef IXFS_TESTS_ATTACKER_H
#define IXFS_TESTS_ATTACKER_H

#include "child_process.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class Attacker
{
public:
    // What it does again and again, told how often it did so before; for the first time before the
    // constructor returns. The step is always done to its end.
    using Step = std::function<void(unsigned int round)>;

    explicit Attacker(const Step& step);

    // Returns the process's exit status, as ChildProcess does. Once.
    int stop();

private:
    struct Unmapper {
        void operator()(std::atomic<bool>* flag) const;
    };

    std::unique_ptr<std::atomic<bool>, Unmapper> stopped_; // seen by both processes
    ChildProcess process_;
};

// Gives `place` and `spare` each other's name and back. Between two steps they have their own, and
// every now and then `spare` is made anew, by each of `decoys` in turn.
Attacker::Step exchanging(const std::string& place, const std::string& spare,
                          const std::vector<std::function<void(const std::string&)>>& decoys);

// Puts each of `decoys` in turn in place of what has that name.
Attacker::Step replacing(const std::string& place, const std::string& spare,
                         const std::vector<std::function<void(const std::string&)>>& decoys);

// Lets a file grow faster than it can be read, and without taking room.
Attacker::Step growing(const std::string& path);

#endif
