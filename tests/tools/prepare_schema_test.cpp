// Whether the schema, and the way to check it, tell good outputs from bad ones.
#include "output_schema.h"
#include "result.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>

using nlohmann::json;
using testing::HasSubstr;

namespace
{

json good_result()
{
    Result result;
    result.server = "media1";
    result.backup_id = "client_7";
    result.status_text = "success";
    return json::parse(format_json(result));
}

TEST(PrepareSchema, TakesAGoodResult)
{
    const ProgramResult result = check_against_schema({good_result().dump()});
    EXPECT_EQ(result.exit_status, 0) << result.errors;
}

TEST(PrepareSchema, NoticesEachWrongMember)
{
    const json good = good_result();
    std::vector<std::string> outputs{"{", "[]", "{}", good.dump() + "x"};
    for (const auto& [name, value] : good.items()) {
        json missing = good;
        missing.erase(name);
        json wrong = good;
        wrong[name] = json::array({-1});
        outputs.push_back(missing.dump());
        outputs.push_back(wrong.dump());
    }
    for (const char* change :
         {R"({"more": 1})", R"({"still_mounted": true})", R"({"mount_point": "/a"})",
          R"({"duration_ms": -1})", R"({"status": 11, "paths": ["a"]})",
          R"({"helper": {"exit_status": 1}})"}) {
        json wrong = good;
        wrong.update(json::parse(change));
        outputs.push_back(wrong.dump());
    }
    const ProgramResult result = check_against_schema(outputs);
    EXPECT_EQ(result.exit_status, 1);
    for (const std::string& output : outputs)
        EXPECT_THAT(result.errors, HasSubstr("\n" + output + "\n"));
}

// The page's table has a row for each member of a result.
TEST(PrepareSchema, PageTellsTheMembersOfAResult)
{
    std::ifstream page_file(IXFS_PREPARE_PAGE);
    const std::string page{std::istreambuf_iterator<char>(page_file), {}};
    const json result = good_result();
    for (const auto& [name, value] : result.items())
        EXPECT_THAT(page, testing::ContainsRegex("\n\\| (`[a-z_]+`, )*`" + name + "`[ ,]"));
}

TEST(PrepareSchema, NothingToCheckIsAFailure)
{
    EXPECT_EQ(check_against_schema({}).exit_status, 1);
}

} // namespace
