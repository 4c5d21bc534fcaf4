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

INSTANTIATE_TEST_SUITE_P(OfEach, CtlHelp,
                         testing::Values(std::vector<std::string>{},
                                         std::vector<std::string>{"status"},
                                         std::vector<std::string>{"clean"},
                                         std::vector<std::string>{"explain"}));

} // namespace
