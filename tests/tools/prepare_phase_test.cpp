// What ixfs-prepare takes from the library's log lines.
#include "phase.h"
#include "progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace
{

Request request_of_disks(int disks)
{
    Request request;
    for (int disk = 0; disk < disks; ++disk)
        request.disks.push_back("[s] backups/" + std::to_string(disk) + ".vmdk.desc");
    return request;
}

class PreparePhase : public testing::Test
{
protected:
    void log(const std::string& tag, const std::string& message, std::chrono::seconds at = 0s)
    {
        phase.take({begin + at, 2, tag, message + "\n"});
    }
    void log_up_to_building()
    {
        log("ixfs_mount()", "INF - waiting for mount mutex...");
        log("ixfs_mount()", "INF - running command - \"ixfs\" mount");
        log("ixfs_mount()", "INF - response - EXIT_STATUS=0");
        log("ixfs_mount()", "INF - mount point - /m");
        log("readXml", "INF - Size after striping padding: 3");
    }
    void log_disk()
    {
        log("copyOrLinkPath", "INF - makeLink? 0");
        log("copyOrLinkPath", "INF - Created new .desc file: a");
        log("copyOrLinkPath", "INF - makeLink? 1");
        log("copyOrLinkPath", "INF - Created link file: a");
    }

    const Phase::Time begin{1000s};
    const Request request = request_of_disks(3);
    Phase phase{request};
};

TEST_F(PreparePhase, FollowsTheSteps)
{
    EXPECT_EQ(phase.step(), Step::starting);
    log("ixfs_mount()", "INF - waiting for mount mutex...", 3s);
    EXPECT_TRUE(phase.waits_to_mount());
    EXPECT_EQ(phase.since(), begin + 3s);
    log("ixfs_mount()", "INF - Successfully setup mount directory: /m.");
    EXPECT_EQ(phase.step(), Step::mounting);
    log("ixfs_mount()", "INF - mount point - /m");
    EXPECT_EQ(phase.step(), Step::reading_configuration);
    log("readXml", "INF - Size after striping padding: 3");
    EXPECT_EQ(phase.step(), Step::building_view);
    log("ixfs_unmount()", "INF - Lets terminate the event...");
    EXPECT_EQ(phase.step(), Step::unmounting);
    log("ixfs_unmount()", "INF - waiting for mount mutex");
    EXPECT_TRUE(phase.waits_to_unmount());
    EXPECT_FALSE(phase.waits_to_mount());
    log("ixfs_unmount()", "INF - got the mount mutex");
    EXPECT_FALSE(phase.waits_to_unmount());
    EXPECT_EQ(phase.step_before_unmount(), Step::building_view);
}

TEST_F(PreparePhase, KeepsTheLockAsTheStepThatFailed)
{
    log("ixfs_mount()", "INF - waiting for mount mutex...");
    log("ixfs_mount()", "ERR - unable to obtain mount mutex");
    EXPECT_EQ(phase.step_before_unmount(), Step::waiting_for_lock);
}

TEST_F(PreparePhase, OtherThreadsLinesAreNoStep)
{
    log_up_to_building();
    log("_ixfs_mount_validate_thread()", "INF - starting validate thread");
    EXPECT_EQ(phase.step(), Step::building_view);
}

TEST_F(PreparePhase, KnowsTheEndOfBothPauses)
{
    log("ixfs_mount()", "INF - mount point - /m");
    EXPECT_FALSE(phase.end_of_pauses());
    log("readXml", "INF - waiting for VM Config file to be accessible", 1s);
    EXPECT_EQ(phase.end_of_pauses(), begin + 21s);
    log("readXml", "INF - waiting for VM Config file to be accessible", 11s);
    EXPECT_EQ(phase.end_of_pauses(), begin + 21s);
    log("readXml", "INF - Size reported by stat: 3 bytes", 21s);
    EXPECT_FALSE(phase.end_of_pauses());
}

TEST_F(PreparePhase, CountsDisks)
{
    log_up_to_building();
    EXPECT_EQ(phase.disks_done(), 0U);
    EXPECT_EQ(progress_of(phase, "media1", begin, false), "disk 1 of 3");
    log_disk();
    log_disk();
    EXPECT_EQ(phase.disks_done(), 2U);
    EXPECT_EQ(progress_of(phase, "media1", begin, false), "disk 3 of 3");
    log("copyOrLinkPath", "INF - makeLink? 0");
    EXPECT_EQ(phase.current_disk(), request.disks[2]);
    log("copyOrLinkPath", "INF - File already exists, reusing: a");
    EXPECT_EQ(phase.disks_done(), 3U);
    EXPECT_EQ(phase.current_disk(), "");
}

TEST_F(PreparePhase, NamesTheDiskThatFailed)
{
    log_up_to_building();
    log_disk();
    log("copyOrLinkPath", "ERR - Failed to find source file for copy/link: a");
    log("create_view_vmir", "ERR - An internal error has occurred: copyAndLinkOneVmirPath");
    EXPECT_EQ(phase.failed_disk(), request.disks[1]);
}

TEST_F(PreparePhase, NamesTheDiskThatWasRefused)
{
    for (const std::string complaint :
         {"ERR - Disk lies in the view folder: ",
          "ERR - Another disk's descriptor has the name of the data file of: ",
          "ERR - Descriptor has the name of another disk's data link in the view: ",
          "ERR - Data link in the view is another file than the data of: "}) {
        Phase refused(request);
        refused.take({begin, 2, "readXml", "INF - Size after striping padding: 3\n"});
        refused.take({begin, 0, "create_view_vmir", complaint + request.disks[2] + "\n"});
        EXPECT_EQ(refused.failed_disk(), request.disks[2]) << complaint;
    }
}

TEST_F(PreparePhase, KnowsADiskWhoseLineWasCut)
{
    Request of_long_disk = request_of_disks(1);
    of_long_disk.disks.push_back("[s] backups/" + std::string(3000, 'x') + ".vmdk.desc");
    Phase refused(of_long_disk);
    refused.take({begin, 2, "readXml", "INF - Size after striping padding: 3\n"});
    std::string line = "ERR - Disk lies in the view folder: " + of_long_disk.disks[1];
    line.resize(2047);
    refused.take({begin, 0, "create_view_vmir", line});
    EXPECT_EQ(refused.failed_disk(), of_long_disk.disks[1]);
}

TEST_F(PreparePhase, KeepsWhatTheHelperSaidLast)
{
    log("ixfs_mount()", "INF - running command - \"ixfs\" mount");
    for (int line = 0; line < 20; ++line)
        log("ixfs_mount()", "INF - response - line " + std::to_string(line));
    log("ixfs_mount()", "INF - response - EXIT_STATUS=25");
    EXPECT_EQ(phase.helper_exit_status(), 25);
    EXPECT_EQ(phase.helper_lines().size(), Phase::most_helper_lines);
    log("ixfs_mount()", "INF - running command - \"ixfs\" mount");
    EXPECT_EQ(phase.helper_exit_status(), std::nullopt);
    EXPECT_THAT(phase.helper_lines(), IsEmpty());
    phase.take_helper_error("wrong: -cred s3cret -x\x1b");
    log("ixfs_mount()", "INF - response - EXIT_STATUS=11");
    EXPECT_EQ(phase.helper_exit_status(), 11);
    EXPECT_THAT(phase.helper_lines(), ElementsAre("wrong: -cred *** -x\\x1b", "EXIT_STATUS=11"));
}

TEST_F(PreparePhase, OfARemovalHasAStepOfItsOwn)
{
    Request removal;
    removal.remove_view = true;
    Phase removing(removal);
    removing.take({begin, 2, "ixfs_mount()", "INF - mount point - /m\n"});
    EXPECT_EQ(removing.step(), Step::removing_view);
}

} // namespace
