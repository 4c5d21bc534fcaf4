// The catalogue of log lines as the recorders look lines up in it.
#include "log_catalogue.h"

#include "handle_test.h"
#include "temp_dir.h"

#include <gtest/gtest-spi.h>

#include <stdexcept>
#include <string>

namespace
{

constexpr char table_head[] = "| tag | sev. | text | when, and what to do |\n|---|---|---|---|\n";

class Catalogue : public HandleTest
{
protected:
    LogCatalogue catalogue_of(const std::string& rows)
    {
        dir.write("catalogue", "# Title\n\nProse.\n\n" + (table_head + rows) + "\nProse.\n");
        return LogCatalogue(dir / "catalogue");
    }

    void say(int severity, const char* tag, const char* message)
    {
        _ixfs_log(handle.get(), tag, severity, "%s", message);
    }

    TempDir dir;
};

TEST_F(Catalogue, HasALineWhoseSeverityTagAndWholeTextAreThose)
{
    const LogCatalogue catalogue =
        catalogue_of("| `open()`, `close()` | 0 | `ERR - %s of %s failed - %d` | call again |\n");
    for (const char* tag : {"open()", "close()"})
        EXPECT_TRUE(catalogue.has(0, tag, "ERR - half of a of b failed - -1\n"));
    EXPECT_FALSE(catalogue.has(2, "open()", "ERR - a of b failed - 5\n"));
    EXPECT_FALSE(catalogue.has(0, "open", "ERR - a of b failed - 5\n"));
    EXPECT_FALSE(catalogue.has(0, "open()", "ERR - a of b failed - 5"));
    EXPECT_FALSE(catalogue.has(0, "open()", " ERR - a of b failed - 5\n"));
    EXPECT_FALSE(catalogue.has(0, "open()", "ERR - a of b failed - five\n"));
    EXPECT_FALSE(catalogue.has(0, "open()", "ERR - a of b failed - -\n"));
    EXPECT_FALSE(catalogue.has(0, "open()", "ERR - a of b failed\n"));
}

TEST_F(Catalogue, LineBelongsToTheRowThatLeavesLeastToValues)
{
    const LogCatalogue catalogue = catalogue_of("| `open()` | 0 | `ERR - no %s` | |\n"
                                                "| `open()` | 2 | `ERR - no memory` | |\n"
                                                "| `open()` | 1 | `%s` | |\n");
    EXPECT_TRUE(catalogue.has(0, "open()", "ERR - no file\n"));
    EXPECT_TRUE(catalogue.has(2, "open()", "ERR - no memory\n"));
    EXPECT_TRUE(catalogue.has(1, "open()", "WRN - slow\n"));
    EXPECT_FALSE(catalogue.has(0, "open()", "ERR - no memory\n"));
    EXPECT_FALSE(catalogue.has(1, "open()", "ERR - no memory\n"));
}

TEST_F(Catalogue, HasTheFrontOfALineThatIsCut)
{
    const LogCatalogue catalogue = catalogue_of("| `open()` | 0 | `ERR - %s (%d) failed` | |\n");
    const std::string whole = "ERR - " + std::string(2041, 'x') + " (11) failed\n";
    for (std::size_t begin = 0; begin <= 13; ++begin)
        EXPECT_TRUE(catalogue.has(0, "open()", "ERR - " + whole.substr(6 + begin, 2041))) << begin;
    EXPECT_FALSE(catalogue.has(0, "open()", whole.substr(0, 2046)));
    EXPECT_FALSE(catalogue.has(0, "open()", "INF" + whole.substr(3, 2044)));
}

TEST_F(Catalogue, TellsWhichRowsAreMarkedAsJobLog)
{
    const LogCatalogue catalogue = catalogue_of("| `open()` | 2 | `waiting` | **job log**; wait |\n"
                                                "| `open()` | 2 | `busy` | not the job log |\n");
    EXPECT_TRUE(catalogue.has_in_job_log("waiting\n"));
    EXPECT_FALSE(catalogue.has_in_job_log("busy\n"));
}

TEST_F(Catalogue, OfAnotherFormIsRefused)
{
    for (const char* row :
         {"| `open()` | `no severity` | |\n", "| | 0 | `no tag` | |\n",
          "| open() | 0 | `tag without quotes` | |\n", "| `open()` | 3 | `no severity` | |\n",
          "| `open()` | 0 | `text` and more | |\n", "| `open()` | 0 | `no end` |\n",
          "| tag | text |\n"})
        EXPECT_THROW(catalogue_of(row), std::runtime_error) << row;
    EXPECT_THROW(LogCatalogue(dir / "missing"), std::runtime_error);
}

// ---- The recorders ------------------------------------------------------------------------------

TEST_F(Catalogue, FailsTheTestForALineWithoutARow)
{
    say(IXFS_LOG_INF, "ixfs_mount()", "INF - mount point - /m\n");
    EXPECT_NONFATAL_FAILURE(say(IXFS_LOG_ERR, "ixfs_mount()", "INF - mount point - /m\n"),
                            "| `ixfs_mount()` | 2 | `INF - mount point - %s` | mounted |");
    EXPECT_NONFATAL_FAILURE(say(IXFS_LOG_INF, "ixfs_unmount()", "INF - mount point - /m\n"),
                            "docs/log-lines.md has no row");
    EXPECT_NONFATAL_FAILURE(say(IXFS_LOG_INF, "ixfs_mount()", "INF - mountpoint - /m\n"),
                            "docs/log-lines.md has no row");
}

TEST_F(Catalogue, FailsTheTestForALineOfTheJobLogThatNoRowIsMarkedFor)
{
    _ixfs_server_log(handle.get(), "ixfs_mount()", IXFS_LOG_INF,
                     "INF - waiting for mount mutex...\n");
    EXPECT_NONFATAL_FAILURE(_ixfs_server_log(handle.get(), "ixfs_mount()", IXFS_LOG_INF,
                                             "INF - mount point - %s\n", "/m"),
                            "docs/log-lines.md marks no row as job log");
}

TEST_F(Catalogue, TakesInventedLinesWhileTheirTestSaysSo)
{
    {
        const InventedLines invented("open()");
        say(IXFS_LOG_INF, "open()", "INF - opened\n");
        EXPECT_NONFATAL_FAILURE(say(IXFS_LOG_INF, "close()", "INF - opened\n"),
                                "docs/log-lines.md has no row");
    }
    EXPECT_NONFATAL_FAILURE(say(IXFS_LOG_INF, "open()", "INF - opened\n"),
                            "docs/log-lines.md has no row");
}

} // namespace
