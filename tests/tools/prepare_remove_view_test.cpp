// ixfs-prepare --remove-view
#include "prepare_run_test.h"

#include "tree_snapshot.h"

#include <filesystem>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

class PrepareRemoveView : public PrepareRunTest
{
protected:
    ProgramResult remove_view(const std::string& backup_id = "client_1") const
    {
        std::vector<std::string> command{
            IXFS_PREPARE_PROGRAM, "--remove-view", "--yes",       "--json",
            "--server",           server.name,     "--port",      "4010",
            "--schedule",         "full",          "--backup-id", backup_id};
        const std::vector<std::string> last = credentials();
        command.insert(command.end(), last.begin(), last.end());
        return run_program(command);
    }

    void expect_failure(const ProgramResult& result, int status) const
    {
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(parsed(result)["status"], status) << result.output;
        EXPECT_EQ(parsed(result)["step"], "removing the view");
        EXPECT_THAT(helper_calls(), ElementsAre("mount media1", "umount media1"));
        EXPECT_EQ(server.mounts(), 0);
    }

    SmallServer server{"media1", 3};
};

TEST_F(PrepareRemoveView, LeavesTheImageAsItWasBefore)
{
    const TreeSnapshot image(server.root);
    ASSERT_EQ(run(server).exit_status, 0);
    ASSERT_TRUE(server.has_view());
    fs::create_directories(server.folder() + "/_vmir/of/others");
    const ProgramResult result = remove_view();
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    EXPECT_EQ(parsed(result)["status_text"], "view removed: backups/client/allusers/full/1/_vmir");
    EXPECT_THAT(image.changes(), IsEmpty());
    EXPECT_EQ(server.mounts(), 0);
}

TEST_F(PrepareRemoveView, OfNoneIsASuccess)
{
    const TreeSnapshot image(server.root);
    const ProgramResult result = remove_view();
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    EXPECT_THAT(parsed(result)["status_text"], testing::Truly([](const nlohmann::json& text) {
                    return text.get<std::string>().find("nothing to remove") == 0;
                }));
    EXPECT_THAT(image.changes(), IsEmpty());
    EXPECT_THAT(helper_calls(), ElementsAre("mount media1", "umount media1"));
}

TEST_F(PrepareRemoveView, OfAMissingImageFails)
{
    expect_failure(remove_view("client_2"), 142);
}

TEST_F(PrepareRemoveView, FollowsNoLinkInTheImage)
{
    const TempDir elsewhere;
    elsewhere.make_folder("full/1/_vmir");
    elsewhere.write("full/1/_vmir/file", "stays");
    fs::remove_all(server.root + "/backups/client/allusers/full");
    fs::create_directory_symlink(elsewhere / "full", server.root + "/backups/client/allusers/full");
    expect_failure(remove_view(), 11);
    EXPECT_TRUE(elsewhere.exists("full/1/_vmir/file"));
}

TEST_F(PrepareRemoveView, LeavesALinkInTheViewsPlace)
{
    const TempDir elsewhere;
    elsewhere.write("file", "stays");
    fs::create_directory_symlink(elsewhere.path(), server.folder() + "/_vmir");
    expect_failure(remove_view(), 11);
    EXPECT_TRUE(elsewhere.exists("file"));
    EXPECT_TRUE(fs::is_symlink(server.folder() + "/_vmir"));
}

TEST_F(PrepareRemoveView, SaysWhyNothingCouldBeMounted)
{
    loopback.steer("mount", "status", "29");
    const ProgramResult result = remove_view();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(parsed(result)["status"], 29);
    EXPECT_EQ(parsed(result)["step"], "mounting");
}

} // namespace
