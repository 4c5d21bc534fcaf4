// What ixfs-prepare prints on standard output, and its exit status.
#include "prepare_test.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace
{

class PrepareResult : public PrepareTest
{
protected:
    // Runs the program for a result in JSON.
    json run_for_json(int exit_status = 0)
    {
        flags.emplace_back("--json");
        const ProgramResult result = run();
        EXPECT_EQ(result.exit_status, exit_status);
        return json::parse(result.output);
    }
};

TEST_F(PrepareResult, TextHoldsPathsAndConfiguration)
{
    provide_image("<vm>\n</vm>");
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output,
              "View descriptors:\n  " + view_disk + "\nVM configuration:\n<vm>\n</vm>\n");
}

TEST_F(PrepareResult, TextKeepsTheConfigurationsBytes)
{
    provide_image("caf\xe9\r\n");
    EXPECT_THAT(run().output, EndsWith("\nVM configuration:\ncaf\xe9\r\n"));
}

TEST_F(PrepareResult, JsonHoldsPathsAndConfiguration)
{
    provide_image("<vm name=\"caf\u00e9\"/>\n");
    const json object = run_for_json();
    EXPECT_EQ(object["server"], "media1");
    EXPECT_EQ(object["backup_id"], "client_7");
    EXPECT_EQ(object["status"], 0);
    EXPECT_EQ(object["status_text"], "success");
    EXPECT_EQ(object["paths"], json::array({view_disk}));
    EXPECT_EQ(object["configuration"], "<vm name=\"caf\u00e9\"/>\n");
    EXPECT_EQ(object["lossy"], false);
}

TEST_F(PrepareResult, JsonTellsThatBytesWereReplaced)
{
    provide_image("caf\xe9\n");
    const json object = run_for_json();
    EXPECT_EQ(object["configuration"], "caf\ufffd\n");
    EXPECT_EQ(object["lossy"], true);
    EXPECT_EQ(object["paths"], json::array({view_disk}));
}

TEST_F(PrepareResult, PathsStandInTheOrderOfTheDisks)
{
    provide_image();
    provide_disk("web");
    options["disk"] = "[b] backups/client/allusers/full/7/vm/web.vmdk.desc";
    flags = {"--disk", disk};
    EXPECT_EQ(run_for_json()["paths"],
              json::array({"[b] backups/client/allusers/full/7/_vmir/web.vmdk", view_disk}));
}

TEST_F(PrepareResult, IncrementalImageIsPreparedFromItsOwnFolder)
{
    options["schedule"] = "incr";
    provide_image();
    EXPECT_EQ(run_for_json()["paths"],
              json::array({"[store] backups/client/allusers/incr/7/_vmir/disk.vmdk"}));
}

TEST_F(PrepareResult, DiskUuidIsKept)
{
    provide_image();
    EXPECT_EQ(run().exit_status, 0);
    EXPECT_THAT(read_view_file("disk.vmdk"), HasSubstr("60 00 C2 9a 00 00 00 00-"));
}

TEST_F(PrepareResult, DiskUuidIsNewOnDemand)
{
    provide_image();
    flags = {"--new-disk-uuids"};
    EXPECT_EQ(run().exit_status, 0);
    EXPECT_THAT(read_view_file("disk.vmdk"), HasSubstr("ddb.uuid = \""));
    EXPECT_THAT(read_view_file("disk.vmdk"), Not(HasSubstr("60 00 C2 9a 00 00 00 00-")));
}

TEST_F(PrepareResult, FailureTellsItsStatusAndText)
{
    helper.answers({{"EXIT_STATUS=7"}});
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                HasSubstr("\nixfs-prepare: failed with status 29: mount helper failed\n"));
}

TEST_F(PrepareResult, FailureIsAJsonObjectToo)
{
    helper.answers({{"EXIT_STATUS=7"}});
    const json object = run_for_json(1);
    EXPECT_EQ(object["status"], 29);
    EXPECT_EQ(object["status_text"], "mount helper failed");
    EXPECT_EQ(object["paths"], json::array());
    EXPECT_EQ(object["configuration"], "");
    EXPECT_EQ(object["lossy"], false);
}

TEST_F(PrepareResult, ConfigurationIsThereWhenADiskFails)
{
    provide_image();
    options["disk"] = "[store] backups/absent.vmdk.desc";
    const json object = run_for_json(1);
    EXPECT_EQ(object["status"], 142);
    EXPECT_EQ(object["paths"], json::array());
    EXPECT_EQ(object["configuration"], "<vm/>\n");
}

TEST_F(PrepareResult, FullDeviceIsAFailure)
{
    provide_image();
    const ProgramResult result = run_redirected("> /dev/full");
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors,
                EndsWith("ixfs-prepare: standard output: No space left on device\n"));
}

TEST_F(PrepareResult, ReaderThatGoesAwayIsAFailure)
{
    provide_image();
    const BrokenPipe pipe;
    const ProgramResult result = run({"", pipe.descriptor()});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, EndsWith("ixfs-prepare: standard output: Broken pipe\n"));
    EXPECT_THAT(helper.runs(), testing::SizeIs(2)); // mounted and unmounted
}

TEST_F(PrepareResult, ClosedStandardOutputIsAFailure)
{
    provide_image();
    const ProgramResult result = run_redirected(">&-");
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, EndsWith("ixfs-prepare: standard output: Bad file descriptor\n"));
    EXPECT_THAT(helper.runs(), testing::SizeIs(2));
}

TEST_F(PrepareResult, UnwrittenHelpIsAFailure)
{
    flags = {"--help"};
    EXPECT_EQ(run_redirected("> /dev/full").exit_status, 1);
}

} // namespace
