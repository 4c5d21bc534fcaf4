// ixfsctl --help, of the program and of each subcommand.
#include "program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace
{

class CtlHelp : public testing::TestWithParam<std::vector<std::string>>
{
};

TEST_P(CtlHelp, FitsInto80ColumnsAndTellsExitStatuses)
{
    std::vector<std::string> command = GetParam();
    command.insert(command.begin(), IXFSCTL_PROGRAM);
    command.emplace_back("--help");
    const ProgramResult result = run_program(command);
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    std::size_t longest = 0;
    for (const std::string& line : lines_of(std::istringstream(result.output)))
        longest = std::max(longest, line.size());
    EXPECT_LE(longest, 80U) << result.output;
    EXPECT_THAT(result.output, HasSubstr("\n\nExit status: 0 "));
    EXPECT_THAT(result.output, Not(HasSubstr("\n\n\n")));
    EXPECT_THAT(result.output, Not(HasSubstr("Excludes:")));
}

TEST(CtlUsage, UnknownSubcommandOrOptionIsNamed)
{
    const auto complaint_about = [](const std::string& argument) {
        const ProgramResult result = run_program({IXFSCTL_PROGRAM, argument});
        EXPECT_EQ(result.exit_status, 2);
        return result.errors;
    };
    EXPECT_THAT(complaint_about("stat"), StartsWith("ixfsctl: unknown subcommand: stat\n"));
    EXPECT_THAT(complaint_about("--stat"), StartsWith("ixfsctl: unknown option: --stat\n"));
}

INSTANTIATE_TEST_SUITE_P(OfEach, CtlHelp,
                         testing::Values(std::vector<std::string>{},
                                         std::vector<std::string>{"status"},
                                         std::vector<std::string>{"clean"},
                                         std::vector<std::string>{"explain"}));

} // namespace
