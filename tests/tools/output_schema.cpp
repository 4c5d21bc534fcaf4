#include "output_schema.h"

#include "temp_dir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace
{

class SchemaCheck : public testing::Environment
{
public:
    void add(const std::string& output) { outputs_.push_back(output); }

    void TearDown() override
    {
        if (outputs_.empty()) // as where one test was chosen
            return;
        const ProgramResult result = check_against_schema(outputs_);
        EXPECT_EQ(result.exit_status, 0) << result.errors;
    }

private:
    std::vector<std::string> outputs_;
};

SchemaCheck& schema_check()
{
    // GoogleTest deletes it.
    static auto* const check = new SchemaCheck;
    static const testing::Environment* const registered = testing::AddGlobalTestEnvironment(check);
    static_cast<void>(registered);
    return *check;
}

// An environment must be known before the first test.
[[maybe_unused]] const SchemaCheck& registered_check = schema_check();

} // namespace

void expect_as_schema_says(const std::string& output)
{
    schema_check().add(output);
}

void expect_lines_as_schema_says(const std::string& output)
{
    for (const std::string& line : lines_of(std::istringstream(output)))
        expect_as_schema_says(line);
}

ProgramResult check_against_schema(const std::vector<std::string>& outputs)
{
    TempDir folder;
    std::string lines;
    for (const std::string& output : outputs)
        lines += nlohmann::json(output).dump() + "\n";
    folder.write("outputs", lines);
    return run_program({IXFS_CHECK_AGAINST_SCHEMA, IXFS_PREPARE_SCHEMA, folder / "outputs"});
}
