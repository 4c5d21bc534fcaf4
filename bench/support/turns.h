// Processes that take turns, and how long each waits for its own.
#ifndef IXFS_BENCH_TURNS_H
#define IXFS_BENCH_TURNS_H

#include <functional>

// Makes the processes that note their turns here, and says what came of it.
class Turns
{
public:
    // What a process does in a loop: two turns, of which it notes each. Returns whether they went
    // well; the process gives up where they did not.
    using Pair = std::function<bool()>;

    struct Result {
        bool all_went_well;
        double seconds_per_pair; // of turns; of the whole queue, not of one process
        double median_wait;      // seconds
        double longest_wait;     // seconds
    };

    // Lets so many processes take turns until at least `turns` of them were measured. The first
    // turns are not: the queue is full only after some. Call it where no other thread runs.
    static Result take(int processes, int turns, const Pair& pair);

    // For a process that has, or just had, a turn that it waited so long for.
    static void note(double seconds_waited);
};

#endif
