#include "image_test.h"
#include "interpose.h"

#include <filesystem>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;

// Each lets one allocation fail, at a certain point of the call; prepare() checks that no lock and
// no descriptor is left.
class PrepareWithoutMemory : public ImageTest
{
protected:
    PrepareWithoutMemory()
    {
        log_info.log_callback = nullptr; // so that the library's allocations are the next
        add_disk("a");
        add_disk("b");
    }

    // Fails the next allocation.
    void arm() { armed_ = true; }

    void SetUp() override
    {
#ifdef IXFS_SANITIZER_DEFINES_NEW
        GTEST_SKIP() << "operator new is the sanitizer's";
#endif
    }

    void expect_unmounted()
    {
        EXPECT_FALSE(armed_) << "no allocation failed";
        EXPECT_EQ(helper_commands(), mounted_and_unmounted);
        EXPECT_TRUE(out.empty());
    }

private:
    bool armed_ = false;
    decltype(interpose::on_allocation)::Hook allocation_ =
        interpose::on_allocation([this](std::size_t) {
            return std::exchange(armed_, false) ? std::optional<void*>(nullptr) : std::nullopt;
        });
};

TEST_F(PrepareWithoutMemory, ImageIsUnmountedWhenTheConfigurationFindsNoRoom)
{
    auto stat = interpose::on_stat([this](const char* path, struct stat*) {
        if (path == config_path()) {
            write_config(std::string(1000, 'x'));
            arm();
        }
        return std::optional<int>();
    });
    EXPECT_THROW(prepare(), std::bad_alloc);
    expect_unmounted();
}

TEST_F(PrepareWithoutMemory, ImageIsUnmountedAndTheLockGivenUpBeforeTheFolder)
{
    auto access = interpose::on_access([this](const char* path, int) {
        if (path == view_folder)
            arm();
        return std::optional<int>();
    });
    EXPECT_THROW(prepare(), std::bad_alloc);
    expect_unmounted();
    EXPECT_FALSE(fs::exists(view_folder));
}

TEST_F(PrepareWithoutMemory, ImageIsUnmountedAndTheLockGivenUpAfterTheLastLink)
{
    auto link = interpose::on_link([this, links = 0](const char*, const char*) mutable {
        if (++links == 2)
            arm();
        return std::optional<int>();
    });
    EXPECT_THROW(prepare(), std::bad_alloc);
    expect_unmounted();
    EXPECT_EQ(view_names(),
              (std::vector<std::string>{"a-flat.vmdk", "a.vmdk", "b-flat.vmdk", "b.vmdk"}));
}

} // namespace
