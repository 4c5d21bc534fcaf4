// What a disk of a preparation costs, in what can be counted.
#include "image_test.h"
#include "interpose.h"
#include "real_mount.h"
#include "traced_calls.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <malloc.h>

namespace
{

constexpr int few = 10;
constexpr int many = 110;

enum class View { is_new, is_there };

// What a caller has in allocated memory, in bytes.
std::size_t memory_in_use()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

class PrepareCosts : public ImageTest
{
protected:
    // What one disk costs, by the difference that many disks make.
    template <typename Cost>
    double per_disk(View view, Cost cost)
    {
        have_disks(few, view);
        const auto of_few = cost();
        have_disks(many, view);
        const auto of_many = cost();
        return static_cast<double>(of_many - of_few) / (many - few);
    }

    // Rounded: waiting for the helper takes a call more or less, from time to time.
    long system_calls_per_disk(View view)
    {
        const auto calls = [this] {
            return system_calls_made_by([this] { prepare_all(); });
        };
        return std::lround(per_disk(view, calls));
    }

    void prepare_all()
    {
        LogInfo log_info_here{nullptr, look_at_memory};
        out.clear();
        if (ixfs_prepare_vmir(creds, entries, &log_info_here, config, out, false) != EC_OK)
            std::abort(); // may be in a process whose expectations count for nothing
    }

    static std::size_t most_memory;

private:
    void have_disks(int count, View view)
    {
        while (static_cast<int>(entries.size()) < count)
            add_disk("disk" + std::to_string(entries.size()));
        if (view == View::is_there)
            prepare_all();
        else
            std::filesystem::remove_all(view_folder);
    }

    static void look_at_memory(int /*severity*/, const char* /*tag*/, const char* /*message*/)
    {
        most_memory = std::max(most_memory, memory_in_use());
    }
};

std::size_t PrepareCosts::most_memory = 0;

// As FUSE's mostly do.
class PrepareCostsWhereDevicesAreForbidden : public PrepareCosts
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
};

TEST_F(PrepareCostsWhereDevicesAreForbidden, DiskTakes13SystemCalls)
{
    EXPECT_EQ(system_calls_per_disk(View::is_new), 13);
}

// Its data is looked at twice, and not linked.
TEST_F(PrepareCostsWhereDevicesAreForbidden, DiskThatIsInTheViewTakes14SystemCalls)
{
    EXPECT_EQ(system_calls_per_disk(View::is_there), 14);
}

// Elsewhere the two more see to it that no device is opened in a descriptor's place.
TEST_F(PrepareCosts, DiskTakes15SystemCalls)
{
    EXPECT_EQ(system_calls_per_disk(View::is_new), 15);
}

TEST_F(PrepareCosts, DiskThatIsInTheViewTakes16SystemCalls)
{
    EXPECT_EQ(system_calls_per_disk(View::is_there), 16);
}

// Of these are 6 for its record, 4 for the paths that are logged, 1 for its result.
TEST_F(PrepareCosts, DiskTakesAtMost16Allocations)
{
    const auto allocations = [this] {
        int count = 0;
        const auto counted = interpose::on_allocation([&](std::size_t /*size*/) {
            ++count;
            return std::optional<void*>();
        });
        prepare_all();
        return count;
    };
    EXPECT_LE(per_disk(View::is_new, allocations), 16);
}

TEST_F(PrepareCosts, DiskTakesAtMost1100BytesOfMemory)
{
    const auto memory = [this] {
        const std::size_t before = memory_in_use();
        most_memory = before;
        prepare_all();
        return most_memory - before;
    };
    EXPECT_LE(per_disk(View::is_new, memory), 1100);
}

} // namespace
