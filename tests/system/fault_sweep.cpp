#include "fault_sweep.h"

#include "watchdog.h"

#include <boost/uuid/entropy_error.hpp>
#include <gmock/gmock.h>

#include <cstdio>
#include <map>
#include <new>

// Finds what has leaked so far; there only under a sanitizer.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace
{

int all_points = 0;

class Total : public testing::Environment
{
    void TearDown() override { std::printf("%d fault points in all\n", all_points); }
};

[[maybe_unused]] const testing::Environment* const total =
    testing::AddGlobalTestEnvironment(new Total);

const char* name_of(Trigger::Mode mode)
{
    return mode == Trigger::Mode::once ? "once" : "for good";
}

// Counts the calls that can be made to fail.
class CallWatch
{
public:
    CallWatch()
    {
        using namespace interpose;
        watch(on_access, on_mkdir, on_link, on_unlink, on_rmdir, on_opendir, on_readdir,
              on_closedir, on_stat, on_umount2);
        watch(on_open, on_read, on_write, on_seek, on_close, on_popen, on_pclose);
        watch(on_uname, on_setlocale, on_getrandom, on_semget, on_semop, on_semctl,
              on_pthread_create);
        watch(on_allocation);
        add(time_fails());
        add(sleep_is_interrupted());
        for (auto& [name, watched] : watched_)
            watched.own_calls = watched.trigger.calls();
    }

    // Ends the watch. Returns the names of the calls that were made meanwhile.
    std::set<std::string> made()
    {
        armed_.clear();
        std::set<std::string> names;
        for (const auto& [name, watched] : watched_) {
            if (watched.trigger.calls() > watched.own_calls)
                names.insert(name);
        }
        return names;
    }

private:
    struct Watched {
        Trigger trigger{0, Trigger::Mode::once};
        int own_calls = 0;
    };

    template <typename... Calls>
    void watch(Calls&... calls)
    {
        (add(fails(calls, 0)), ...);
    }

    void add(const Fault& fault)
    {
        armed_.push_back(fault.arm(watched_[fault.call].trigger, clock_));
    }

    std::map<std::string, Watched> watched_;
    FaultClock clock_;
    std::vector<ArmedFault> armed_;
};

// Whether a call that is made may all the same never be hit.
bool may_be_out_of_reach([[maybe_unused]] const std::string& call)
{
#ifdef IXFS_SANITIZER_DEFINES_NEW
    return call == "allocation";
#else
    return false;
#endif
}

int failures_so_far()
{
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

} // namespace

Handle silent_handle(int flags)
{
    return Handle(ixfs_init(flags, nullptr, OutcomeFinder::callback, nullptr, nullptr));
}

FaultCases operator+(FaultCases left, const FaultCases& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

int FaultSweep::act_guarded()
{
    try {
        return act();
    } catch (const std::bad_alloc&) {
        return threw_bad_alloc;
    } catch (const boost::uuids::entropy_error&) {
        return threw_entropy_error;
    } catch (const std::exception&) {
        return threw_what_it_must_not;
    }
}

void FaultSweep::run_undisturbed()
{
    arrange();
    {
        CallWatch watch;
        undisturbed_result_ = act_guarded();
        calls_made_ = watch.made();
    }
    take_back(undisturbed_result_);
    serve();
}

// Returns whether the call with that number was made.
bool FaultSweep::run(const FaultCase& fault_case, int number, Trigger::Mode mode)
{
    const Leftovers before;
    arrange();
    OutcomeFinder outcome(fault_case.outcomes, undisturbed_result_);
    Trigger trigger(number, mode, [&outcome] { outcome.call_fails(); });
    int result = 0;
    {
        FaultClock clock;
        const ArmedFault armed = fault_case.fault.arm(trigger, clock);
        result = act_guarded();
    }
    EXPECT_FALSE(outcome.is_at_a_loss()) << "nothing says what comes of it, but it was " << result;
    EXPECT_EQ(result, outcome.result());
    EXPECT_STREQ(outcome.uncatalogued_line(), "");
    outcome.add_reached(reached_);
    take_back(result);
    before.expect_none_but(outcome.image(), fault_case.lock);
    serve();
    before.expect_none();
    return trigger.reached();
}

void FaultSweep::sweep(const FaultCase& fault_case, Trigger::Mode mode)
{
    const Fault& fault = fault_case.fault;
    const std::string what = fault.call + " fails with " + fault.error + " " + name_of(mode);
    const Watchdog watchdog(std::chrono::seconds(60), "while " + what);
    const int failures_before = failures_so_far();
    for (int number = fault.first; number <= fault.last; ++number) {
        SCOPED_TRACE(what + ", beginning with call " + std::to_string(number));
        const bool reached = run(fault_case, number, mode);
        if (failures_so_far() != failures_before)
            return;
        if (!reached) {
            EXPECT_TRUE(number > fault.first || may_be_out_of_reach(fault.call))
                << "was never called";
            return;
        }
        ++points_;
    }
}

void FaultSweep::sweep(const FaultCase& fault_case)
{
    const int failures_before = failures_so_far();
    reached_.clear();
    if (fault_case.fault.once)
        sweep(fault_case, Trigger::Mode::once);
    if (fault_case.fault.lasts)
        sweep(fault_case, Trigger::Mode::for_good);
    if (failures_so_far() != failures_before || may_be_out_of_reach(fault_case.fault.call))
        return;
    for (const Stretch& stretch : fault_case.outcomes) {
        if (stretch.result != makes_no_difference) {
            EXPECT_EQ(reached_.count(&stretch), 1)
                << fault_case.fault.call << " never fails with " << fault_case.fault.error
                << " behind \"" << stretch.line << '"';
        }
    }
}

void FaultSweep::sweep(const FaultCases& cases)
{
    run_undisturbed();
    std::set<std::string> swept;
    for (const FaultCase& fault_case : cases) {
        const std::string& call = fault_case.fault.call;
        if (calls_made_.count(call) == 0 && may_be_out_of_reach(call))
            continue;
        swept.insert(call);
        sweep(fault_case);
    }
    EXPECT_EQ(swept, calls_made_) << "each call is tried, and under its own name";
    if (__lsan_do_recoverable_leak_check != nullptr) {
        EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "memory has leaked";
    }
    std::printf("%5d fault points: %s\n", points_,
                testing::UnitTest::GetInstance()->current_test_info()->test_suite_name());
    all_points += points_;
}
