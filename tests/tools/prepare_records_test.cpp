// The records of ixfs-prepare's worker, and the order in which requests begin.
#include "queue.h"
#include "records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using testing::ElementsAre;

namespace
{

TEST(PrepareRecords, ArriveAsTheyWereSentWhateverThePieces)
{
    const std::string bytes("a\0b\n\xff", 5);
    const auto now = std::chrono::system_clock::now();
    std::string stream = encode(LogLine{now, 1, "tag", bytes});
    stream += encode(OwnMounts{
        {{1, 2, "0:5", "/p", "t", "s"}}, {{3, 4, "0:6", "/q", "u", bytes}}, {"/q", ""}, 9});
    stream += encode(Outcome{-7, "text", {"one", ""}, bytes});

    RecordReader reader;
    std::vector<Record> records;
    for (const char byte : stream) {
        reader.take({&byte, 1});
        while (std::optional<Record> record = reader.next())
            records.push_back(*record);
    }
    ASSERT_EQ(records.size(), 3U);
    const auto& line = std::get<LogLine>(records[0]);
    EXPECT_EQ(line.time, now);
    EXPECT_EQ(line.severity, 1);
    EXPECT_EQ(line.tag, "tag");
    EXPECT_EQ(line.message, bytes);
    const auto& mounts = std::get<OwnMounts>(records[1]);
    EXPECT_EQ(mounts.before.at(0).parent, 2);
    EXPECT_EQ(mounts.made.at(0).device, "0:6");
    EXPECT_EQ(mounts.made.at(0).source, bytes);
    EXPECT_THAT(mounts.folders, ElementsAre("/q", ""));
    EXPECT_EQ(mounts.exchanged, 9);
    const auto& outcome = std::get<Outcome>(records[2]);
    EXPECT_EQ(outcome.status, -7);
    EXPECT_THAT(outcome.paths, ElementsAre("one", ""));
    EXPECT_EQ(outcome.configuration, bytes);
}

TEST(PrepareRecords, ThatAreNoneAreRefused)
{
    RecordReader reader;
    std::string stream = encode(LogLine{{}, 1, "tag", "message"});
    stream[stream.size() - 15] = '\x7f'; // the message's length
    reader.take(stream);
    EXPECT_THROW(reader.next(), std::runtime_error);
}

std::vector<Request> requests_of(const std::vector<std::string>& servers)
{
    std::vector<Request> requests;
    for (const std::string& server : servers) {
        requests.emplace_back();
        requests.back().server = server;
    }
    return requests;
}

TEST(PrepareQueue, BeginsOneRequestOfAServerAtATime)
{
    Queue queue(requests_of({"a", "a", "b", "a"}), 3);
    EXPECT_EQ(queue.begin_next(), 0U);
    EXPECT_EQ(queue.begin_next(), 2U);
    EXPECT_EQ(queue.begin_next(), std::nullopt);
    queue.ended("a");
    EXPECT_EQ(queue.begin_next(), 1U);
    queue.ended("b");
    EXPECT_EQ(queue.begin_next(), std::nullopt);
    queue.ended("a");
    EXPECT_EQ(queue.begin_next(), 3U);
    EXPECT_EQ(queue.done(), 3U);
}

TEST(PrepareQueue, BeginsNoMoreThanItMay)
{
    Queue queue(requests_of({"a", "b", "c"}), 2);
    EXPECT_EQ(queue.begin_next(), 0U);
    EXPECT_EQ(queue.begin_next(), 1U);
    EXPECT_EQ(queue.begin_next(), std::nullopt);
    queue.ended("b");
    EXPECT_EQ(queue.begin_next(), 2U);
}

TEST(PrepareQueue, BeginsNothingOnceItIsStopped)
{
    Queue queue(requests_of({"a", "b"}), 1);
    EXPECT_EQ(queue.begin_next(), 0U);
    queue.stop();
    queue.ended("a");
    EXPECT_EQ(queue.begin_next(), std::nullopt);
}

} // namespace
