// How ixfs-prepare writes what came of a preparation, and log lines.
#include "log_output.h"
#include "output_schema.h"
#include "result.h"

#include <ixfs.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdlib>
#include <ctime>

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace
{

Result failed_disk()
{
    Result result;
    result.server = "media1";
    result.backup_id = "client_7";
    result.status = EC_FILE_NOT_FOUND;
    result.status_text = "file not found";
    result.step = "building the view";
    result.disk = "[s] backups/a\x1b.vmdk.desc";
    result.helper_exit_status = 7;
    result.helper_lines = {"cannot\tgo", "EXIT_STATUS=7\x07"};
    result.duration = std::chrono::milliseconds(1234);
    return result;
}

Result still_mounted()
{
    Result result = failed_disk();
    result.status = EC_OK;
    result.status_text = "success";
    result.disk.clear();
    result.step = "unmounting";
    result.still_mounted = true;
    result.mount_point = "/usr/varnis/var/ixfs/media1";
    result.signal = SIGTERM;
    return result;
}

json parsed(const std::string& output)
{
    expect_as_schema_says(output);
    return json::parse(output);
}

TEST(PrepareFormats, FailureNamesDiskStepAndHelper)
{
    EXPECT_EQ(format_failure(failed_disk()), "failed with status 142: file not found\n"
                                             "  step: building the view\n"
                                             "  disk: [s] backups/a\\x1b.vmdk.desc\n"
                                             "  helper's exit status: 7\n"
                                             "  helper's last lines:\n"
                                             "    cannot\tgo\n"
                                             "    EXIT_STATUS=7\\x07\n"
                                             "  what to do: ixfsctl explain 142");
}

TEST(PrepareFormats, FailureLeavesOutWhatIsNotKnown)
{
    Result result;
    result.status = EC_SYSTEM_ERROR;
    result.status_text = "std::bad_alloc";
    EXPECT_EQ(format_failure(result), "failed with status 11: std::bad_alloc\n"
                                      "  what to do: ixfsctl explain 11");
}

TEST(PrepareFormats, FailureTellsWhatIsStillMounted)
{
    const std::string text = format_failure(still_mounted());
    EXPECT_THAT(text, testing::StartsWith("the image is still mounted; asked to end by SIGTERM\n"));
    EXPECT_THAT(text, testing::EndsWith("\n  still mounted: /usr/varnis/var/ixfs/media1"));
}

TEST(PrepareFormats, JsonNamesDiskStepAndHelper)
{
    EXPECT_EQ(
        parsed(format_json(failed_disk())),
        (json{{"server", "media1"},
              {"backup_id", "client_7"},
              {"status", 142},
              {"status_text", "file not found"},
              {"step", "building the view"},
              {"disk", "[s] backups/a\x1b.vmdk.desc"},
              {"helper", {{"exit_status", 7}, {"last_lines", {"cannot\tgo", "EXIT_STATUS=7\x07"}}}},
              {"still_mounted", false},
              {"mount_point", nullptr},
              {"signal", nullptr},
              {"duration_ms", 1234},
              {"paths", json::array()},
              {"configuration", ""},
              {"lossy", false}}));
}

TEST(PrepareFormats, JsonTellsWhatIsStillMounted)
{
    const json object = parsed(format_json(still_mounted()));
    EXPECT_EQ(object["still_mounted"], true);
    EXPECT_EQ(object["mount_point"], "/usr/varnis/var/ixfs/media1");
    EXPECT_EQ(object["signal"], SIGTERM);
    EXPECT_EQ(object["step"], "unmounting");
    EXPECT_EQ(object["disk"], nullptr);
}

TEST(PrepareFormats, SuccessStoppedAtNoStep)
{
    Result result = failed_disk();
    result.status = EC_OK;
    result.disk.clear();
    result.helper_exit_status.reset();
    const json object = parsed(format_json(result));
    EXPECT_EQ(object["step"], nullptr);
    EXPECT_EQ(object["helper"]["exit_status"], nullptr);
}

TEST(PrepareFormats, JsonLineIsTheSameOnOneLine)
{
    Result result = failed_disk();
    result.configuration = "a\nb\xe9";
    const std::string line = format_json_line(result);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    EXPECT_EQ(parsed(line), parsed(format_json(result)));
    EXPECT_EQ(parsed(line)["lossy"], true);
}

TEST(PrepareFormats, SummaryIsALine)
{
    const Summary summary{1, 2, 3, 4, std::chrono::milliseconds(5)};
    const std::string line = format_json_line(summary);
    EXPECT_EQ(line, R"({"summary":{"prepared":1,"failed":2,"not_started":3,"still_mounted":4,)"
                    R"("duration_ms":5}})"
                    "\n");
    expect_as_schema_says(line);
}

// ---- Log lines ----------------------------------------------------------------------------------

const LogContext vm{"media1", "cl\x1b_7"};

LogOutput::Time at(std::time_t seconds, int milliseconds)
{
    return LogOutput::Time(std::chrono::seconds(seconds) + std::chrono::milliseconds(milliseconds));
}

// A time zone of this process, until the object is gone.
class TimeZone
{
public:
    explicit TimeZone(const char* name) { set(name); }
    ~TimeZone()
    {
        unsetenv("TZ");
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

    static void set(const char* name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
};

std::string line_at(LogOutput::Time time)
{
    return LogOutput({}).format(time, IXFS_LOG_INF, "tag", "text\n", vm);
}

TEST(PrepareLogLine, TimeHasMillisecondsAndOffset)
{
    const TimeZone zone("UTC0");
    EXPECT_EQ(line_at(at(1700000000, 7)), "2023-11-14T22:13:20.007Z INF tag: text\n");
    EXPECT_EQ(line_at(at(-1, 999)), "1969-12-31T23:59:59.999Z INF tag: text\n");
    TimeZone::set("AAA-05:45");
    EXPECT_EQ(line_at(at(1700000000, 120)), "2023-11-15T03:58:20.120+05:45 INF tag: text\n");
    TimeZone::set("BBB+03:30");
    EXPECT_EQ(line_at(at(1700000000, 0)), "2023-11-14T18:43:20.000-03:30 INF tag: text\n");
}

TEST(PrepareLogLine, NamesTheVmWhereThereAreSeveral)
{
    LogStyle style;
    style.timestamps = false;
    style.names_vm = true;
    const LogOutput output(style);
    EXPECT_EQ(output.format({}, IXFS_LOG_ERR, "tag", "ERR - text\n", vm),
              "ERR [media1 cl\\x1b_7] tag: ERR - text\n");
    EXPECT_EQ(output.format_own({}, IXFS_LOG_ERR, "text", vm),
              "ixfs-prepare: [media1 cl\\x1b_7]: text\n");
    EXPECT_EQ(output.format_own({}, IXFS_LOG_ERR, "text", {}), "ixfs-prepare: text\n");
}

TEST(PrepareLogLine, JsonNamesTheVmAlways)
{
    LogStyle style;
    style.format = LogFormat::json;
    const std::string line =
        LogOutput(style).format(at(0, 1), IXFS_LOG_WRN, "tag", "a\xff -cred s3cret b\n", vm);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const json object = parsed(line);
    EXPECT_EQ(object["severity"], "WRN");
    EXPECT_EQ(object["tag"], "tag");
    EXPECT_EQ(object["message"], "a\ufffd -cred *** b");
    EXPECT_EQ(object["server"], "media1");
    EXPECT_EQ(object["backup_id"], "cl\x1b_7");
}

TEST(PrepareLogLine, QuietLeavesProblemsAlone)
{
    LogStyle style;
    style.quiet = true;
    const LogOutput output(style);
    EXPECT_NE(output.format({}, IXFS_LOG_ERR, "tag", "ERR - text\n", vm), "");
    EXPECT_NE(output.format({}, IXFS_LOG_ERR, "tag", "text\n", vm), "");
    EXPECT_EQ(output.format({}, IXFS_LOG_ERR, "tag", "INF - text\n", vm), "");
    EXPECT_EQ(output.format({}, IXFS_LOG_WRN, "tag", "ERR - text\n", vm), "");
    EXPECT_EQ(output.format({}, IXFS_LOG_INF, "tag", "ERR - text\n", vm), "");
    EXPECT_NE(output.format_own({}, IXFS_LOG_ERR, "text", vm), "");
}

TEST(PrepareLogLine, IsOneLineThatCannotSteerATerminal)
{
    const std::string line =
        LogOutput({}).format({}, IXFS_LOG_INF, "tag", "a\nb\x1b[2J -cred s3cret c\n", vm);
    EXPECT_THAT(line, HasSubstr("INF tag: a\\x0ab\\x1b[2J -cred *** c\n"));
    EXPECT_THAT(line, Not(HasSubstr("\x1b")));
}

} // namespace
