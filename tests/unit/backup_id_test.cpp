#include "ixfs_vmir.h"

#include "grouping_locale.h"
#include "handle_test.h"

#include <climits>
#include <string>

namespace
{

// Parses backup ids, and says what the log of one must be.
class BackupId : public HandleTest
{
protected:
    ec_status parse(const std::string& backup_id)
    {
        log.take();
        return makeClientAndBackupTime(handle.get(), backup_id, client, backup_time);
    }

    void expect_parsed(const std::string& backup_id, const std::string& expected_client,
                       long expected_time)
    {
        SCOPED_TRACE(backup_id);
        EXPECT_EQ(parse(backup_id), 0);
        EXPECT_EQ(client, expected_client);
        EXPECT_EQ(backup_time, expected_time);
        EXPECT_EQ(log.lines(), (Lines{first_line(backup_id)}));
    }

    void expect_refused(const std::string& backup_id, const std::string& message)
    {
        SCOPED_TRACE(backup_id);
        EXPECT_EQ(parse(backup_id), 20);
        EXPECT_EQ(log.lines(), (Lines{first_line(backup_id),
                                      {IXFS_LOG_ERR, "makeClientAndBackupTime",
                                       "ERR - " + message + ": " + backup_id + "\n"}}));
    }

    std::string client = "before";
    long backup_time = 0;

private:
    static Line first_line(const std::string& backup_id)
    {
        return {IXFS_LOG_INF, "makeClientAndBackupTime",
                "INF - Finding client and backup time from bid: " + backup_id + "\n"};
    }
};

constexpr char no_underscore[] = "Backup ID improperly formatted (no underscore)";
constexpr char no_client[] = "No client name in backup id";
constexpr char no_time[] = "Failed to read backup time from backup id";

TEST_F(BackupId, SplitsClientAndTime)
{
    expect_parsed("host_1700000000", "host", 1'700'000'000);
}

TEST_F(BackupId, LastUnderscoreSeparates)
{
    expect_parsed("a_b_c_42", "a_b_c", 42);
    expect_parsed("my_host_1700000000", "my_host", 1'700'000'000);
    expect_parsed("a__5", "a_", 5);
    expect_parsed("__5", "_", 5);
}

TEST_F(BackupId, WithoutUnderscoreIsImproperlyFormatted)
{
    expect_refused("host1700000000", no_underscore);
    expect_refused("", no_underscore);
    EXPECT_EQ(client, "before");
}

TEST_F(BackupId, WithoutClientIsRefused)
{
    expect_refused("_1700000000", no_client);
    expect_refused("_", no_client);
}

TEST_F(BackupId, WithoutTimeIsRefused)
{
    expect_refused("host_", no_time);
    expect_refused("host_abc", no_time);
    expect_refused("host_-", no_time);
    expect_refused("host_ ", no_time);
}

TEST_F(BackupId, WhatFollowsTheTimeIsIgnored)
{
    expect_parsed("host_123abc", "host", 123);
    expect_parsed("host_0x10", "host", 0);
    expect_parsed("host_12.75", "host", 12);
}

TEST_F(BackupId, WhiteSpaceBeforeTheTimeIsSkipped)
{
    expect_parsed("host_ 42", "host", 42);
    expect_parsed("host_ \t\n42", "host", 42);
}

TEST_F(BackupId, TimeMayHaveASign)
{
    expect_parsed("host_-5", "host", -5);
    expect_parsed("host_+5", "host", 5);
}

TEST_F(BackupId, LeadingZerosDoNotMakeTheTimeOctal)
{
    expect_parsed("host_010", "host", 10);
}

TEST_F(BackupId, TimeBeyond64BitsIsRefused)
{
    expect_refused("host_99999999999999999999", no_time);
    expect_refused("host_9223372036854775808", no_time);
    expect_refused("host_-9223372036854775809", no_time);
}

TEST_F(BackupId, TimeMayUseAll64Bits)
{
    expect_parsed("host_9223372036854775807", "host", LONG_MAX);
    expect_parsed("host_-9223372036854775808", "host", LONG_MIN);
}

TEST_F(BackupId, TimeDoesNotFollowTheProcesssLocale)
{
    const GroupingLocale locale;
    expect_parsed("host_1,000", "host", 1);
}

TEST_F(BackupId, ClientIsOverwrittenEvenOnFailure)
{
    parse("host_abc");
    EXPECT_EQ(client, "host");
    parse("_5");
    EXPECT_EQ(client, "");
}

TEST_F(BackupId, ClientKeepsItsBytes)
{
    expect_parsed("gr\xfcn host/\"%s\"_7", "gr\xfcn host/\"%s\"", 7);
}

TEST_F(BackupId, LongIdIsParsedAndItsLineCut)
{
    const std::string long_client(5000, 'h');
    EXPECT_EQ(parse(long_client + "_7"), 0);
    EXPECT_EQ(client, long_client);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].message.size(), 2047U);
}

TEST_F(BackupId, FailureIsNotRecordedOnTheHandle)
{
    parse("host");
    EXPECT_EQ(ixfs_last_error(handle.get()), 0);
}

} // namespace
