// Long log lines: each log gets what its buffer takes.
#include "bounds.h"
#include "handle_test.h"

#include <string>
#include <vector>

namespace
{

class LogBounds : public HandleTest, public testing::WithParamInterface<std::size_t>
{
protected:
    const InventedLines invented{"tag"};
    const std::string text = bounds::text(GetParam());
    const Line logged{IXFS_LOG_INF, "tag", bounds::as_message(text)};
};

TEST_P(LogBounds, Arguments)
{
    _ixfs_log(handle.get(), "tag", IXFS_LOG_INF, "%s", text.c_str());
    EXPECT_EQ(log.take(), Lines{logged});
}

TEST_P(LogBounds, ArgumentsOfTheServerLog)
{
    _ixfs_server_log(handle.get(), "tag", IXFS_LOG_INF, "%s", text.c_str());
    EXPECT_EQ(log.take(), Lines{logged});
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - " + logged.message}));
}

// Formats of a length that only the run tells are what this is about.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_P(LogBounds, Formats)
{
    _ixfs_log(handle.get(), "tag", IXFS_LOG_INF, text.c_str());
    EXPECT_EQ(log.take(), Lines{logged});
}
#pragma GCC diagnostic pop

INSTANTIATE_TEST_SUITE_P(, LogBounds, testing::Values(2047U, 2048U, 5000U), bounds::length_name);

} // namespace
