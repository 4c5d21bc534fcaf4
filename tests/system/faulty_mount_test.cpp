// Preparations of an image whose file system times out, breaks, is full or read-only, or dies.
#include "fake_time.h"
#include "faulty_mount.h"
#include "interpose.h"
#include "tree_snapshot.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <optional>

using faultfs::Count;
using faultfs::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr Speaker link_says("_ixfs_create_hard_link()");
constexpr Speaker copy_says("_ixfs_copy_desc()");
constexpr Speaker view_folder_says("makeViewFolder");

constexpr char by_timeout[] = " with semaphoere timeout";

Line unlinked_line(const std::string& data, const std::string& link, int error)
{
    return link_says.error("ERR - Could not create link " + data + " to " + link + " - " +
                           std::to_string(error));
}

// Patterns of the image's files for rules.
const std::string the_configuration = " */^^.^VIRTUAL_FILE_FSMAP";
const std::string the_view_folder = " */_vmir";
const std::string the_second_descriptor = " */vm/b.vmdk.desc";
const std::string the_second_copy = " */_vmir/b.vmdk";

// ---- Time-outs ----------------------------------------------------------------------------------

TEST_F(FaultyMount, AccessThatTimesOut99TimesSucceedsAtOnce)
{
    const FakeClock clock;
    const Fault slow_configuration = image.add("access ETIME times=99" + the_configuration);
    const Fault slow_descriptor = image.add("access ETIME times=99" + the_second_descriptor);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(slow_configuration.count(), (Count{100, 99}));
    EXPECT_EQ(slow_descriptor.count(), (Count{100, 99}));
    EXPECT_THAT(clock.sleeps(), IsEmpty());
    expect_undisturbed_success();
}

TEST_F(FaultyMount, ConfigurationThatTimesOut100TimesIsLookedForAgain)
{
    const FakeClock clock;
    const Fault slow = image.add("access ETIME times=100" + the_configuration);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(slow.count(), (Count{101, 100}));
    EXPECT_THAT(clock.sleeps(), ElementsAre(10));
    EXPECT_EQ(failures(), Lines{unseen_line(config_path(), by_timeout)});
    expect_whole_view();
}

TEST_F(FaultyMount, ConfigurationThatTimesOutForGoodIs142)
{
    const FakeClock clock;
    const Fault dead = image.add("access ETIME" + the_configuration);
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(dead.count(), (Count{300, 300}));
    EXPECT_THAT(clock.sleeps(), ElementsAre(10, 10));
    const Line timeout = unseen_line(config_path(), by_timeout);
    expect_failure_without_view({timeout, timeout, timeout, missing_config_line()});
    EXPECT_EQ(config, "");
}

TEST_F(FaultyMount, DescriptorThatTimesOut100TimesIs142AndTheViewRemoved)
{
    const Fault slow = image.add("access ETIME times=100" + the_second_descriptor);
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(slow.count(), (Count{100, 100}));
    expect_failure_without_view(unseen_descriptor_lines(by_timeout));
}

TEST_F(FaultyMount, MkdirThatTimesOut99TimesSucceeds)
{
    const Fault slow = image.add("mkdir ETIME times=99" + the_view_folder);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(slow.count(), (Count{100, 99}));
    expect_undisturbed_success();
}

TEST_F(FaultyMount, MkdirThatTimesOut100TimesIsGivenUpUnnoticedUntilTheFirstDescriptor)
{
    const Fault slow = image.add("mkdir ETIME times=100" + the_view_folder);
    entries.erase(entries.begin());
    EXPECT_EQ(prepare(), EC_FILE_NOT_COPIED);
    EXPECT_EQ(slow.count(), (Count{100, 100}));
    EXPECT_EQ(
        log.with_message("INF - Successfully created directory: " + view_folder + "\n").size(), 1);
    expect_failure_without_view(
        Lines{copy_says.error("ERR - can't open new " + view_b + ", err 2")} + failed_copy_lines() +
        folder_delete_says.error("ERR - ACE_OS::opendir(" + view_folder + ") failed, error = 2"));
}

// ---- The configuration --------------------------------------------------------------------------

TEST_F(FaultyMount, ConfigurationThatAppearsAfterTheSecondCheckIsRead)
{
    const FakeClock clock;
    const Fault late = image.add("lookup ENOENT times=2" + the_configuration);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(late.count().fired, 2);
    EXPECT_THAT(clock.sleeps(), ElementsAre(10, 10));
    EXPECT_EQ(log.with_tag("readXml").size(), 2 + 4) << "two lines of waiting, four of reading";
    EXPECT_EQ(failures(), Lines{});
    EXPECT_EQ(config, "<vm/>");
    expect_whole_view();
}

TEST_F(FaultyMount, ConfigurationThatIsNotThereAtTheThirdCheckIs142)
{
    const FakeClock clock;
    const Fault late = image.add("lookup ENOENT times=3" + the_configuration);
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(late.count(), (Count{3, 3}));
    EXPECT_THAT(clock.sleeps(), ElementsAre(10, 10));
    expect_failure_without_view({missing_config_line()});
}

TEST_F(FaultyMount, ConfigurationWithABadSectorIs13AndWhatCameBeforeItIsKept)
{
    const std::string readable = "<vm>" + std::string(4092, 'r');
    write_config(readable + std::string(8192, 'b') + "</vm>");
    const Fault bad_sector = image.add("read EIO from=4096" + the_configuration);
    EXPECT_EQ(prepare(), EC_FILE_NOT_READ);
    EXPECT_EQ(bad_sector.count().fired, 1);
    expect_failure_without_view(
        {read_says.error("ERR - Failed to read contents of file: " + config_path())});
    EXPECT_EQ(config, readable);
}

// ---- Descriptors --------------------------------------------------------------------------------

// Behind its extent line, so that the copy looks whole to whoever checks but that line.
TEST_F(FaultyMount, DescriptorWithABadSectorIs14AndTheViewRemoved)
{
    const std::size_t uuid_line = descriptor("b-flat.vmdk").find("ddb.uuid");
    const Fault bad_sector =
        image.add("read EIO from=" + std::to_string(uuid_line) + the_second_descriptor);
    EXPECT_EQ(prepare(), EC_FILE_NOT_COPIED);
    EXPECT_EQ(bad_sector.count().fired, 1);
    expect_failure_without_view(Lines{copy_says.error("ERR - error reading old file - 5")} +
                                failed_copy_lines());
}

TEST_F(FaultyMount, FullDiskIs14AndTheViewRemoved)
{
    const Fault full = image.add("write ENOSPC from=30" + the_second_copy);
    EXPECT_EQ(prepare(), EC_FILE_NOT_COPIED);
    EXPECT_EQ(full.count().fired, 1);
    expect_failure_without_view(Lines{copy_says.error("ERR - error writing new file - 28")} +
                                failed_copy_lines());
}

// ---- Links --------------------------------------------------------------------------------------

TEST_F(FaultyMount, NoMoreLinksIs11AndTheViewRemoved)
{
    const Fault no_more = image.add("link EMLINK */_vmir/b-flat.vmdk");
    EXPECT_EQ(prepare(), EC_SYSTEM_ERROR);
    EXPECT_EQ(no_more.count().fired, 1);
    expect_failure_without_view(Lines{unlinked_line(data_b, link_b, EMLINK)} + failed_link_lines());
}

TEST_F(FaultyMount, FileSystemWithoutLinksReadsAsSuccess)
{
    const Fault none = image.add("link EPERM *");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(none.count().fired, 2);
    EXPECT_EQ(failures(),
              (Lines{unlinked_line(in_image("vm/a.vmdk"), in_view("a-flat.vmdk"), EPERM),
                     unlinked_line(data_b, link_b, EPERM)}));
    EXPECT_EQ(log.with_message("INF - Created link file: " + link_b + "\n").size(), 1);
    EXPECT_THAT(view_names(), ElementsAre("a.vmdk", "b.vmdk"));
    EXPECT_EQ(out.size(), 2);
}

// ---- The whole image ----------------------------------------------------------------------------

TEST_F(FaultyMount, ReadOnlyImageIs1)
{
    const Fault read_only = image.add("modify EROFS *");
    EXPECT_EQ(prepare(), EC_FOLDER_NOT_CREATED);
    EXPECT_EQ(read_only.count().fired, 1);
    expect_failure_without_view(
        {folder_create_says.info("ERR - ACE_OS::mkdir(): Could not create Parent (" + view_folder +
                                 "), error: 30"),
         view_folder_says.error("ERR - Could not create folder for view: " + view_folder),
         view_says.error("ERR - Create view for VM Instant Recovery has failed: 1.")});
    EXPECT_EQ(config, "<vm/>");
}

TEST_F(FaultyMount, ViewThatIsThereAlreadyStaysOnAReadOnlyImage)
{
    EXPECT_EQ(prepare(), EC_OK);
    const TreeSnapshot view(view_folder);
    const std::vector<std::string> disks = out;
    const Fault read_only = image.add("modify EROFS *");
    EXPECT_EQ(prepare(), EC_FILE_NOT_COPIED);
    EXPECT_EQ(read_only.count().fired, 2) << "one to write the descriptor, one to remove the view";
    EXPECT_EQ(log.with_message("ERR - can't open new " + in_view("a.vmdk") + ", err 30\n").size(),
              1);
    EXPECT_THAT(view.changes(), IsEmpty());
    EXPECT_EQ(out, disks);
}

// Every call fails from the moment on that the first disk is complete. Nothing can be taken away
// then.
TEST_F(FaultyMount, ServerThatDiesBetweenTwoDisksIs142)
{
    std::optional<Fault> death;
    const auto link = interpose::on_link([&](const char* from, const char* to) {
        const int result = ::link(from, to);
        death = image.add("any ENOTCONN *");
        return std::optional<int>(result);
    });
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(link.calls(), 1);
    ASSERT_TRUE(death);
    // Three steps: to look at the link, to find the next descriptor, to remove the view. A kernel
    // may look twice for what it has known.
    EXPECT_THAT(death->count().fired, testing::AllOf(testing::Ge(3), testing::Le(2 * 3)));
    EXPECT_EQ(failures(), (unseen_descriptor_lines(", error = 107") +
                           folder_delete_says.error("ERR - ACE_OS::opendir(" + view_folder +
                                                    ") failed, error = 107")));
    EXPECT_THAT(view_names(), ElementsAre("a-flat.vmdk", "a.vmdk"));
    EXPECT_THAT(out, IsEmpty());
}

} // namespace
