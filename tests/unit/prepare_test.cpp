#include "image_test.h"
#include "interpose.h"
#include "memory_shortage.h"
#include "real_mount.h"
#include "record_view.h"
#include "watchdog.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

class Prepare : public ImageTest
{
protected:
    // The text of the UUID line of a disk's descriptor in the view.
    std::string uuid_line(const std::string& base_name) const
    {
        const std::string text = mount_point.read(view_path(base_name + ".vmdk"));
        return text.substr(text.find("ddb.uuid"));
    }

    // That the image was mounted and unmounted, and in between only these lines were logged.
    void expect_only(const Lines& lines)
    {
        EXPECT_EQ(image_lines(), lines);
        EXPECT_EQ(helper_commands(), mounted_and_unmounted);
        EXPECT_FALSE(fs::exists(view_folder));
    }
};

// ---- Success ------------------------------------------------------------------------------------

TEST_F(Prepare, ImageIsMountedPreparedAndUnmounted)
{
    add_disk("a");
    add_disk("b-000002");
    const Strings given = entries;
    EXPECT_EQ(prepare(), EC_OK);

    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(out, (Strings{"[ds] " + view_path("a.vmdk"), "[ds] " + view_path("b.vmdk")}));
    EXPECT_EQ(entries, given);
    EXPECT_EQ(view_names(), (Strings{"a-flat.vmdk", "a.vmdk", "b-flat.vmdk", "b.vmdk"}));
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines() +
                                 copied_lines("a", "a") + linked_lines("a", "a") +
                                 copied_lines("b-000002", "b") + linked_lines("b-000002", "b"));
    EXPECT_EQ(helper.runs(),
              (std::vector<Strings>{{"mount", "-server", "server", "-port", "4010", "-timeout",
                                     "30", "-cred", "mount-cred", "/usr/varnis/var/ixfs/server"},
                                    {"umount", "-f", "-server", "server", "-port", "4010", "-cred",
                                     "unmount-cred", mount_point.path()}}));
}

TEST_F(Prepare, IncrementalImagesLieInAFolderOfTheirOwn)
{
    add_disk("a");
    fs::rename(mount_point / "backups/host/allusers/full",
               mount_point / "backups/host/allusers/incr");
    for (const int incremental : {1, 4}) {
        creds.schedule_type = incremental;
        entries = {"[ds] backups/host/allusers/incr/1700000000/vm/a.vmdk.desc"};
        out.clear();
        EXPECT_EQ(prepare(), EC_OK);
        EXPECT_EQ(out, Strings{"[ds] backups/host/allusers/incr/1700000000/_vmir/a.vmdk"});
    }
}

TEST_F(Prepare, UuidStaysUnlessANewOneIsAskedFor)
{
    add_disk("a");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(Prepare, EachDiskGetsANewUuidWhenAskedFor)
{
    add_disk("a");
    add_disk("b");
    new_disk_uuids = true;
    EXPECT_EQ(prepare(), EC_OK);
    for (const std::string disk : {"a", "b"}) {
        const std::string line = uuid_line(disk);
        EXPECT_EQ(line.size(), std::string("ddb.uuid = \"\"\r\n").size() + 47);
        EXPECT_EQ(descriptor(disk + "-flat.vmdk").find(line), std::string::npos);
        const std::string uuid = line.substr(12, 47);
        EXPECT_EQ(log.with_message("INF - New uuid: " + uuid + "\n").size(), 1);
    }
    EXPECT_NE(uuid_line("a"), uuid_line("b"));
}

TEST_F(Prepare, ViewStaysLockedUntilTheImageIsUnmounted)
{
    const TempDir notes;
    helper.does("[ $1 = mount ] || cat /proc/sysvipc/sem >" + notes / "locks");
    EXPECT_EQ(prepare(), EC_OK);
    const std::string locks = notes.read("locks");
    constexpr int heading_mount_mutex_and_view_lock = 3;
    EXPECT_EQ(std::count(locks.begin(), locks.end(), '\n'), heading_mount_mutex_and_view_lock);
}

// The first name that is tried for the lock of this image has the mount mutex's key.
TEST_F(Prepare, ViewLockWithTheKeyOfTheMountMutexDoesNotBlockTheUnmount)
{
    const Watchdog watchdog{std::chrono::seconds(60)};
    const auto vm = interpose::on_uname([](utsname* names) {
        std::strcpy(names->nodename, "vm");
        return std::optional<int>(0);
    });
    const fs::path images = mount_point / "backups/host/allusers/full";
    add_disk("a");
    fs::rename(images / "1700000000", images / "14206992411");
    std::string& entry = entries.at(0);
    entry.replace(entry.find("1700000000"), std::strlen("1700000000"), "14206992411");
    creds.backup_id = "host_14206992411";
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
    EXPECT_EQ(
        log.with_message("INF - Trying to create mutex: Global\\EGR_14206992411__vv_vm_0\n").size(),
        1U);
    EXPECT_EQ(log.with_message("INF - Successfully created mutex: "
                               "Global\\EGR_14206992411__vv_vm_1\n")
                  .size(),
              1U);
}

TEST_F(Prepare, HandleKeepsTheCallersLogContext)
{
    int context = 0;
    log_info.log_context = &context;
    void* handle = nullptr;
    const auto allocation = interpose::on_allocation([&](std::size_t size) {
        if (handle != nullptr || size != record_view::handle_size)
            return std::optional<void*>();
        handle = std::calloc(1, size);
        return std::optional<void*>(handle);
    });
    const void* kept = nullptr;
    const auto helper_run = interpose::on_popen([&](const char*, const char*) {
        kept = record_view::log_context(static_cast<_ixfs_control_t*>(handle));
        return std::optional<FILE*>();
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(kept, &context);
}

TEST_F(Prepare, WithoutLogInfoNoLineIsLogged)
{
    add_disk("a");
    EXPECT_EQ(ixfs_prepare_vmir(creds, entries, nullptr, config, out, false), EC_OK);
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(out.size(), 1);
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

TEST_F(Prepare, WithoutLogCallbackNoLineIsLogged)
{
    add_disk("a");
    int context = 0;
    log_info = {&context, nullptr};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(out.size(), 1);
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
}

// ---- Failure ------------------------------------------------------------------------------------

TEST_F(Prepare, WithoutMemoryForAHandleNothingIsDone)
{
    {
        const MemoryShortage no_handle(record_view::handle_size);
        EXPECT_EQ(prepare(), 103);
    }
    EXPECT_EQ(log.take(), Lines{});
    EXPECT_EQ(helper_commands(), Strings{});
}

TEST_F(Prepare, FailedMountReturnsItsStatusAndIsNotUnmounted)
{
    add_disk("a");
    helper.answers({{"EXIT_STATUS=5"}});
    EXPECT_EQ(prepare(), 29);
    EXPECT_EQ(helper_commands(), Strings{"mount"});
    for (const Line& line : log.take())
        EXPECT_THAT(line.tag, testing::AnyOf("ixfs_mount()", "_ixfs_folder_create()"))
            << line.message;
    EXPECT_EQ(config, "");
    EXPECT_EQ(out, Strings{});
}

TEST_F(Prepare, MountThatIsRefusedReturnsItsStatus)
{
    creds.port = 0;
    EXPECT_EQ(prepare(), 20);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, "ixfs_mount()",
                                  "ERR - invalid parameter, invalid port number\n"}}));
    EXPECT_EQ(helper_commands(), Strings{});
}

TEST_F(Prepare, BackupIdWithoutUnderscoreIs20AndTheImageUnmounted)
{
    add_disk("a");
    creds.backup_id = "host1700000000";
    EXPECT_EQ(prepare(), 20);
    expect_only({{IXFS_LOG_INF, "makeClientAndBackupTime",
                  "INF - Finding client and backup time from bid: host1700000000\n"},
                 {IXFS_LOG_ERR, "makeClientAndBackupTime",
                  "ERR - Backup ID improperly formatted (no underscore): host1700000000\n"}});
}

TEST_F(Prepare, UnknownScheduleTypeIs223AndTheImageUnmounted)
{
    add_disk("a");
    creds.schedule_type = 2;
    EXPECT_EQ(prepare(), 223);
    const EcStatusException cause(EC_INVALID_SCHEDULE, "buildImagePath");
    expect_only({config_lines()[0],
                 {IXFS_LOG_ERR, "buildImagePath", "ERR - Invalid Schedule Type: 2.\n"},
                 {IXFS_LOG_ERR, "buildPathToXml",
                  "ERR - Failed to build image path: " + cause.message + "\n"}});
}

TEST_F(Prepare, ResultOfTheUnmountIsIgnored)
{
    add_disk("a");
    helper.answers({{"MOUNTPOINT=" + mount_point.path(), "EXIT_STATUS=0"}, {"EXIT_STATUS=5"}});
    const auto mounted = RealMount::bind(mount_point.path(), mount_point.path());
    auto umount2 = interpose::on_umount2.fails(EBUSY);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(umount2.calls(), 1);
    EXPECT_TRUE(mount_point.exists("."));
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
    EXPECT_EQ(out.size(), 1);
}

} // namespace
