// ixfs-prepare --dry-run: what it prints, and that it does nothing.
#include "prepare_test.h"

#include <nlohmann/json.hpp>

#include <sstream>

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

class PrepareDryRun : public PrepareTest
{
protected:
    PrepareDryRun() { flags = {"--dry-run"}; }
};

TEST_F(PrepareDryRun, PrintsEveryPath)
{
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              "Nothing is mounted: this is a dry run.\n"
              "Server:                 media1, port 4010\n"
              "Image:                  backups/client/allusers/full/7\n"
              "View:                   backups/client/allusers/full/7/_vmir\n"
              "Disk:                   [store] backups/client/allusers/full/7/vm/disk.vmdk.desc\n"
              "  descriptor:           backups/client/allusers/full/7/vm/disk.vmdk.desc\n"
              "  data:                 backups/client/allusers/full/7/vm/disk.vmdk\n"
              "  name in the view:     disk\n"
              "  descriptor in view:   backups/client/allusers/full/7/_vmir/disk.vmdk\n"
              "  data in view:         backups/client/allusers/full/7/_vmir/disk-flat.vmdk\n"
              "  printed as:           [store] backups/client/allusers/full/7/_vmir/disk.vmdk\n");
}

TEST_F(PrepareDryRun, RunsNothing)
{
    provide_image();
    EXPECT_EQ(run().exit_status, 0);
    EXPECT_THAT(helper.runs(), IsEmpty());
}

TEST_F(PrepareDryRun, PrintsJsonToo)
{
    options["schedule"] = "incr";
    options["disk"] = "[s] x/backups/a/web-000001.vmdk.desc";
    flags.emplace_back("--json");
    const std::string view = "backups/client/allusers/incr/7/_vmir";
    EXPECT_EQ(json::parse(run().output),
              (json{{"dry_run", true},
                    {"remove_view", false},
                    {"server", "media1"},
                    {"port", 4010},
                    {"schedule", "incr"},
                    {"backup_id", "client_7"},
                    {"image", "backups/client/allusers/incr/7"},
                    {"view", view},
                    {"disks", json::array({{{"disk", options["disk"]},
                                            {"descriptor", "backups/a/web-000001.vmdk.desc"},
                                            {"data", "backups/a/web-000001.vmdk"},
                                            {"base_name", "web"},
                                            {"view_descriptor", view + "/web.vmdk"},
                                            {"view_data", view + "/web-flat.vmdk"},
                                            {"path", "[s] " + view + "/web.vmdk"}}})},
                    {"lossy", false}}));
}

// What it prints is what a preparation then does.
TEST_F(PrepareDryRun, AgreesWithThePreparation)
{
    provide_image();
    flags.emplace_back("--json");
    const json plan = json::parse(run().output);
    flags = {"--json"};
    const json result = json::parse(run().output);
    EXPECT_EQ(result["paths"], json::array({plan["disks"][0]["path"]}));
    EXPECT_NE(read_view_file(plan["disks"][0]["base_name"].get<std::string>() + ".vmdk"), "");
}

TEST_F(PrepareDryRun, ChecksCredentialsAsUsual)
{
    use_mount_credential("s3cret;\n");
    expect_refusal("mount credential: only letters");
    options.erase("mount-cred-file");
    options.erase("unmount-cred-file");
    expect_refusal("credentials are missing");
}

TEST_F(PrepareDryRun, ControlCharactersAreShownAsText)
{
    options["disk"] = "[\x1b] backups/a.vmdk.desc";
    EXPECT_THAT(run().output, HasSubstr(" [\\x1b] backups/a.vmdk.desc\n"));
}

TEST_F(PrepareDryRun, OfAListPrintsALineForEachVm)
{
    folder.write("list", R"({"backup_id": "one_1"})"
                         "\n"
                         R"({"backup_id": "two_2"})");
    options["from"] = folder / "list";
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    std::vector<std::string> images;
    for (const std::string& line : lines_of(std::istringstream(result.output)))
        images.push_back(json::parse(line)["image"].get<std::string>());
    EXPECT_THAT(images,
                testing::ElementsAre("backups/one/allusers/full/1", "backups/two/allusers/full/2"));
    EXPECT_THAT(helper.runs(), IsEmpty());
}

TEST_F(PrepareDryRun, TellsThatBytesWereReplaced)
{
    options["disk"] = "[caf\xe9] backups/a.vmdk.desc";
    flags.emplace_back("--json");
    const json plan = json::parse(run().output);
    EXPECT_EQ(plan["lossy"], true);
    EXPECT_EQ(plan["disks"][0]["disk"], "[caf\ufffd] backups/a.vmdk.desc");
}

TEST_F(PrepareDryRun, UnwrittenIsAFailure)
{
    EXPECT_EQ(run_redirected("> /dev/full").exit_status, 1);
}

} // namespace
