// Faults while a handle is made.
#include "fault_sweep.h"

namespace
{

using namespace interpose;

class InitFaults : public FaultSweep
{
protected:
    int act() override
    {
        handle_ = ixfs_init(0, nullptr, nullptr, nullptr, nullptr);
        return handle_ != nullptr;
    }

    void take_back(int made) override
    {
        EXPECT_EQ(_ixfs_is_invalid(handle_), !made);
        EXPECT_STREQ(g_lc_time, "C");
        ixfs_term(handle_);
    }

private:
    _ixfs_control_t* handle_ = nullptr;
};

TEST_F(InitFaults, LeaveNothingBehind)
{
    sweep({
        {memory_is_null(), false},
        {fails(on_setlocale, 0), makes_no_difference}, // the locale counts as "C"
    });
}

} // namespace
