// Lets each call that an entry point makes fail, the first, the second, and so on, once and from
// there on for good, and looks at what comes of it.
#ifndef IXFS_TESTS_FAULT_SWEEP_H
#define IXFS_TESTS_FAULT_SWEEP_H

#include "fault_injection.h"
#include "fault_leftovers.h"
#include "fault_outcomes.h"
#include "handle_test.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <string>
#include <vector>

// What an entry point must come to when a call fails so.
struct FaultCase {
    Fault fault;
    Outcomes outcomes;
    FreeLock lock = FreeLock::is_gone;
};

struct FaultCases : std::vector<FaultCase> {
    using std::vector<FaultCase>::vector;
};

FaultCases operator+(FaultCases left, const FaultCases& right);

// Results beyond those that entry points have.
inline constexpr int threw_bad_alloc = 10'001;
inline constexpr int threw_entropy_error = 10'002;
inline constexpr int threw_what_it_must_not = 10'003;

inline bool threw(int result)
{
    return result >= threw_bad_alloc;
}

// A fixture for one use of the interface, which a test sweeps.
class FaultSweep : public testing::Test
{
protected:
    // What each run consists of. First it makes ready, and then makes the calls that are to be hit,
    // and nothing else. With all calls real again, it looks at what the result stands for and takes
    // that back. Nothing may be left behind by now; and then everything must serve as before.
    virtual void arrange() {}
    virtual int act() = 0;
    virtual void take_back(int /*result*/) {}
    virtual void serve() {}

    // What act() comes to without a fault.
    int undisturbed_result() const { return undisturbed_result_; }

    // Sweeps the cases, which must hold each call that act() makes and that can fail, and no result
    // that no failure comes to.
    void sweep(const FaultCases& cases);

private:
    void run_undisturbed();
    void sweep(const FaultCase& fault_case);
    void sweep(const FaultCase& fault_case, Trigger::Mode mode);
    bool run(const FaultCase& fault_case, int number, Trigger::Mode mode);
    int act_guarded();

    int undisturbed_result_ = 0;
    std::set<std::string> calls_made_;
    std::set<const Stretch*> reached_;
    int points_ = 0;
};

// A handle whose log goes to the outcome finder.
Handle silent_handle(int flags = 0);

#endif
