// The log lines of ixfs-prepare on standard error.
#include "prepare_test.h"

#include <csignal>
#include <sstream>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

namespace
{

class PrepareLog : public PrepareTest
{
protected:
    std::vector<std::string> logged_lines() const
    {
        return lines_of(std::istringstream(run().errors));
    }
};

TEST_F(PrepareLog, LinesCarrySeverityAndTag)
{
    provide_image();
    const std::vector<std::string> lines = logged_lines();
    EXPECT_THAT(lines, Each(MatchesRegex("(ERR|WRN|INF) [A-Za-z_]+(\\(\\))?: .+")));
    EXPECT_THAT(lines, Contains("INF ixfs_mount(): INF - waiting for mount mutex..."));
    EXPECT_THAT(lines, Contains(StartsWith("INF readXml: INF - Read file size: 6")));
}

TEST_F(PrepareLog, QuietLeavesErrorsByTheirSeverity)
{
    provide_image();
    flags = {"--quiet"};
    const std::vector<std::string> lines = logged_lines();
    // The library's severity counts, which the message's own prefix need not agree with.
    EXPECT_THAT(lines, Contains("ERR ixfs_unmount(): INF - Lets terminate the event..."));
    EXPECT_THAT(lines, Each(StartsWith("ERR ")));
}

TEST_F(PrepareLog, QuietStillTellsTheFailure)
{
    flags = {"--quiet"};
    EXPECT_THAT(logged_lines(),
                ElementsAre("ERR ixfs_mount(): ERR - nothing is mounted",
                            "ixfs-prepare: preparation failed with status 11: system call failed"));
}

TEST_F(PrepareLog, HelperOutputCannotSteerATerminal)
{
    helper.answers({{"a\rb\x1b[2J\x7f\tc", "\xc3\xa9"}});
    const std::string errors = run().errors;
    EXPECT_THAT(errors, HasSubstr("response - a\\x0db\\x1b[2J\\x7f\tc\n"));
    EXPECT_THAT(errors, HasSubstr("response - \xc3\xa9\n"));
    EXPECT_THAT(errors, Not(HasSubstr("\x1b")));
}

TEST_F(PrepareLog, ReaderThatGoesAwayDoesNotEndThePreparation)
{
    provide_image();
    const BrokenPipe pipe;
    EXPECT_EQ(run({"", -1, pipe.descriptor()}).exit_status, 0);
    EXPECT_THAT(helper.runs(), testing::SizeIs(2)); // mounted and unmounted
}

TEST_F(PrepareLog, ClosedStandardErrorIsNotLeftForOtherFiles)
{
    provide_image();
    helper.does("readlink /proc/$$/fd/2 > '" + (folder / "errors") + "'");
    EXPECT_EQ(run_redirected("2>&-").exit_status, 0);
    EXPECT_EQ(folder.read("errors"), "/dev/null\n");
}

TEST_F(PrepareLog, HelperGetsTheUsualSigpipe)
{
    provide_image();
    helper.does("sed -n 's/^SigIgn:.//p' /proc/$$/status > '" + (folder / "ignored") + "'");
    EXPECT_EQ(run().exit_status, 0);
    const unsigned long long ignored = std::stoull(folder.read("ignored"), nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0U);
}

} // namespace
