// The statuses in three places: ixfs.h, docs/statuses.md and the library's texts.
#include "ixfs.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace
{

using NumbersByName = std::map<std::string, int>;

// The library's text of a status, or "" where it has none.
std::string text_of(int status)
{
    const char* const text = ixfs_status_text(status);
    return text != nullptr ? text : "";
}

std::vector<std::smatch> matches(const std::vector<std::string>& lines, const std::regex& form)
{
    std::vector<std::smatch> found;
    for (const std::string& line : lines) {
        std::smatch parts;
        if (std::regex_search(line, parts, form))
            found.push_back(parts);
    }
    return found;
}

class Statuses : public testing::Test
{
protected:
    static std::vector<std::string> lines_of(const char* path)
    {
        std::ifstream file(path);
        EXPECT_TRUE(file) << path;
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }

    const std::vector<std::string> header = lines_of(IXFS_PUBLIC_HEADER);
    const std::vector<std::string> document = lines_of(IXFS_STATUS_TABLE);

    // Number, name, where from, text, what to do.
    const std::vector<std::smatch> rows = matches(
        document, std::regex(R"(^\| (\d+) \| `(EC_\w+)` \| ([^|]+) \| ([^|]+) \| [^|]+ \|$)"));
};

TEST_F(Statuses, TableHasNoRowOfAnotherForm)
{
    constexpr std::size_t head = 2;
    EXPECT_EQ(matches(document, std::regex(R"(^\|)")).size(), head + rows.size());
}

TEST_F(Statuses, TableHasTheNamesAndNumbersOfTheHeaderAndNoOther)
{
    NumbersByName in_header;
    for (const std::smatch& parts : matches(header, std::regex(R"(^ *(EC_\w+) = (\d+)\b)")))
        EXPECT_TRUE(in_header.emplace(parts[1], std::stoi(parts[2])).second) << parts[0];
    NumbersByName in_table;
    for (const std::smatch& parts : rows)
        EXPECT_TRUE(in_table.emplace(parts[2], std::stoi(parts[1])).second) << parts[0];
    EXPECT_EQ(in_table, in_header);
    EXPECT_EQ(in_header["EC_ALREADY_MOUNTED"], EC_ALREADY_MOUNTED);
}

TEST_F(Statuses, TableHasTheLibrarysTexts)
{
    for (const std::smatch& parts : rows)
        EXPECT_EQ(parts[4], text_of(std::stoi(parts[1]))) << parts[0];
}

TEST_F(Statuses, NumberThatTheTableLacksHasNoText)
{
    std::map<int, std::string> in_table;
    for (const std::smatch& parts : rows)
        in_table[std::stoi(parts[1])] = parts[4];
    for (int number = -1000; number <= 1000; ++number) {
        if (in_table.count(number) == 0) {
            EXPECT_EQ(text_of(number), "") << number;
        }
    }
    EXPECT_EQ(text_of(INT_MIN), "");
    EXPECT_EQ(text_of(INT_MAX), "");
}

} // namespace
