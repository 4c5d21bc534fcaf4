// The preparation of a VM as C calls it.
#include "ixfs_prepare.h"

#include "image_test.h"
#include "interpose.h"
#include "memory_shortage.h"
#include "process_state.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Strings = std::vector<std::string>;

struct ResultDeleter {
    void operator()(ixfs_prepare_result* result) const { ixfs_prepare_result_free(result); }
};
using ResultPtr = std::unique_ptr<ixfs_prepare_result, ResultDeleter>;

// A request for the image of two disks.
class PrepareInC : public ImageTest
{
protected:
    PrepareInC()
    {
        add_disk("a");
        add_disk("b");
        disks_ = {entries[0].c_str(), entries[1].c_str()};
        request.server = "server";
        request.mount_cred = "mount-cred";
        request.unmount_cred = "unmount-cred";
        request.backup_id = "host_1700000000";
        request.disks = disks_.data();
        request.disk_count = disks_.size();
        request.port = 4010;
        request.timeout = 30;
        request.log_callback = LogRecorder::callback;
    }

    // Prepares, and checks that no lock and no file descriptor is left.
    void prepare()
    {
        const NoDescriptorsLeft no_descriptors_left;
        const NoLocksLeft no_locks_left;
        result.reset(ixfs_prepare(&request));
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->error == nullptr, result->status == EC_OK);
        EXPECT_EQ(result->configuration_length, std::string(result->configuration).size());
        EXPECT_EQ(result->paths[result->path_count], nullptr);
    }

    Strings paths() const { return {result->paths, result->paths + result->path_count}; }

    void expect_failure(ec_status status, const std::string& error)
    {
        EXPECT_EQ(result->status, status);
        EXPECT_STREQ(result->error, error.c_str());
        EXPECT_EQ(paths(), Strings{});
    }

    // Prepares, which must be refused before anything is done.
    void expect_refusal(const std::string& what)
    {
        prepare();
        expect_failure(EC_INVALID_PARAMETER, "invalid parameter: " + what);
        EXPECT_STREQ(result->configuration, "");
        EXPECT_EQ(log.take(), Lines{});
        EXPECT_EQ(helper_commands(), Strings{});
    }

    ixfs_prepare_request request = IXFS_PREPARE_REQUEST_INIT;
    ResultPtr result;

private:
    std::vector<const char*> disks_;
};

TEST_F(PrepareInC, ImageIsMountedPreparedAndUnmounted)
{
    prepare();
    EXPECT_EQ(result->status, EC_OK);
    EXPECT_STREQ(result->configuration, "<vm/>");
    EXPECT_EQ(result->configuration_length, 5U);
    EXPECT_EQ(paths(), (Strings{"[ds] " + view_path("a.vmdk"), "[ds] " + view_path("b.vmdk")}));
    EXPECT_EQ(view_names(), (Strings{"a-flat.vmdk", "a.vmdk", "b-flat.vmdk", "b.vmdk"}));
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines() +
                                 copied_lines("a", "a") + linked_lines("a", "a") +
                                 copied_lines("b", "b") + linked_lines("b", "b"));
    EXPECT_EQ(helper.runs(),
              (std::vector<Strings>{{"mount", "-server", "server", "-port", "4010", "-timeout",
                                     "30", "-cred", "mount-cred", "/usr/varnis/var/ixfs/server"},
                                    {"umount", "-f", "-server", "server", "-port", "4010", "-cred",
                                     "unmount-cred", mount_point.path()}}));
}

TEST_F(PrepareInC, EachDescriptorGetsANewUuidWhenAskedFor)
{
    prepare();
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
    request.new_disk_uuids = -1;
    prepare();
    EXPECT_EQ(result->status, EC_OK);
    EXPECT_NE(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(PrepareInC, ScheduleTypeIsTheRequests)
{
    std::filesystem::rename(mount_point / "backups/host/allusers/full",
                            mount_point / "backups/host/allusers/incr");
    request.schedule_type = 4;
    request.disk_count = 0;
    request.disks = nullptr;
    prepare();
    EXPECT_EQ(result->status, EC_OK);
    EXPECT_STREQ(result->configuration, "<vm/>");
    EXPECT_EQ(paths(), Strings{});
}

// ---- Requests that are refused ------------------------------------------------------------------

TEST_F(PrepareInC, NoRequestIsRefused)
{
    result.reset(ixfs_prepare(nullptr));
    ASSERT_NE(result, nullptr);
    expect_failure(EC_INVALID_PARAMETER, "invalid parameter: the request is null");
    EXPECT_STREQ(result->configuration, "");
    EXPECT_EQ(helper_commands(), Strings{});
}

TEST_F(PrepareInC, RequestOfALaterVersionIsRefused)
{
    request.size = sizeof(request) + 1;
    expect_refusal("the request's size is none of this library's");
}

TEST_F(PrepareInC, RequestWithoutItsSizeIsRefused)
{
    for (const std::size_t size : {std::size_t{0}, sizeof(request.size) - 1}) {
        request.size = size;
        expect_refusal("the request's size is none of this library's");
    }
}

TEST_F(PrepareInC, MissingTextsAreRefusedByName)
{
    using Text = const char* ixfs_prepare_request::*;
    const std::pair<Text, std::string> texts[] = {
        {&ixfs_prepare_request::server, "server"},
        {&ixfs_prepare_request::mount_cred, "mount_cred"},
        {&ixfs_prepare_request::unmount_cred, "unmount_cred"},
        {&ixfs_prepare_request::backup_id, "backup_id"}};
    for (const auto& [text, name] : texts) {
        const char* const given = std::exchange(request.*text, nullptr);
        expect_refusal(name + " is null");
        request.*text = given;
    }
}

TEST_F(PrepareInC, MissingDisksAreRefused)
{
    const char* const one_missing[] = {entries[0].c_str(), nullptr};
    request.disks = one_missing;
    expect_refusal("disks[1] is null");
    request.disks = nullptr;
    expect_refusal("disks is null");
}

// ---- Requests of an older version ---------------------------------------------------------------

TEST_F(PrepareInC, MembersBeyondTheRequestsSizeAreNotRead)
{
    request.new_disk_uuids = 1;
    request.size = offsetof(ixfs_prepare_request, new_disk_uuids);
    prepare();
    EXPECT_EQ(result->status, EC_OK);
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(PrepareInC, MemberThatIsCutByTheRequestsSizeIsNotRead)
{
    request.size = offsetof(ixfs_prepare_request, backup_id) + 1;
    expect_refusal("backup_id is null");
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(PrepareInC, FailureComesWithItsText)
{
    helper.answers({{"EXIT_STATUS=5"}});
    prepare();
    expect_failure(EC_HELPER_FAILED, "mount helper failed");
    EXPECT_STREQ(result->configuration, "");
}

TEST_F(PrepareInC, ConfigurationIsThereAfterALaterFailure)
{
    std::filesystem::remove(in_image("vm/b.vmdk"));
    prepare();
    expect_failure(EC_FILE_NOT_FOUND, "file not found");
    EXPECT_STREQ(result->configuration, "<vm/>");
    EXPECT_EQ(result->configuration_length, 5U);
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

TEST_F(PrepareInC, AbsurdSizeOfTheConfigurationIsAFailureToReadIt)
{
    const auto seek = interpose::on_seek([](int, off64_t, int whence) {
        constexpr off64_t absurd = std::numeric_limits<off64_t>::max() - 1;
        return whence == SEEK_SET ? std::nullopt : std::optional<off64_t>(absurd);
    });
    prepare();
    expect_failure(EC_FILE_NOT_READ, "the VM configuration file has an absurd size");
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

TEST_F(PrepareInC, RandomSourceThatFailsIsASystemError)
{
    const auto getrandom = interpose::on_getrandom.fails(EIO);
    request.new_disk_uuids = 1;
    prepare();
    EXPECT_EQ(result->status, EC_SYSTEM_ERROR);
    EXPECT_THAT(result->error, testing::HasSubstr("getrandom"));
    EXPECT_EQ(paths(), Strings{});
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

TEST_F(PrepareInC, FreeingNothingIsAllowed)
{
    ixfs_prepare_result_free(nullptr);
}

// ---- Short memory -------------------------------------------------------------------------------

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(PrepareInC, EachAllocationBeforeTheHandleMayFail)
{
    int refused = 0; // the number of the allocation that fails
    do {
        int made = 0;
        ++refused;
        {
            const auto allocation = interpose::on_allocation([&](std::size_t) {
                return ++made == refused ? std::optional<void*>(nullptr) : std::nullopt;
            });
            result.reset(ixfs_prepare(&request));
        }
        ASSERT_GE(made, refused) << "no allocation failed";
        EXPECT_EQ(result == nullptr, refused == 1);
        if (result != nullptr && result->status != EC_NO_HANDLE)
            expect_failure(EC_NO_MEMORY, "out of memory");
        EXPECT_EQ(log.take(), Lines{});
        EXPECT_EQ(helper_commands(), Strings{});
    } while (result == nullptr || result->status != EC_NO_HANDLE);
    expect_failure(EC_NO_HANDLE, "no handle could be created");
    constexpr int result_disks_room_for_paths_and_handle = 5;
    EXPECT_GE(refused, result_disks_room_for_paths_and_handle);
}

// Later, the view would be there, and nobody would learn its paths.
TEST_F(PrepareInC, RoomForThePathsIsMadeBeforeTheImageIsMounted)
{
    {
        const std::size_t two_paths_and_the_end = 3 * sizeof(const char*);
        const MemoryShortage no_paths(two_paths_and_the_end);
        prepare();
        EXPECT_EQ(no_paths.hits(), 1);
    }
    expect_failure(EC_NO_MEMORY, "out of memory");
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(helper_commands(), Strings{});
}

TEST_F(PrepareInC, ImageIsUnmountedWhenMemoryRunsShortInIt)
{
    bool armed = false;
    request.log_callback = nullptr; // so that the library's allocation is the next
    const auto access = interpose::on_access([&](const char* path, int) {
        armed = armed || path == view_folder;
        return std::optional<int>();
    });
    const auto allocation = interpose::on_allocation([&](std::size_t) {
        return std::exchange(armed, false) ? std::optional<void*>(nullptr) : std::nullopt;
    });
    prepare();
    expect_failure(EC_NO_MEMORY, "out of memory");
    EXPECT_STREQ(result->configuration, "<vm/>");
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

#endif

} // namespace
