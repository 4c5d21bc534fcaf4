// Disks and leftovers whose names are hard to handle.
#include "hostile_image.h"

#include <filesystem>

#include <climits>

namespace fs = std::filesystem;

namespace
{

struct OddName {
    std::string name;
    std::string disk;
};
void PrintTo(const OddName& odd, std::ostream* stream)
{
    *stream << odd.name;
}

constexpr std::size_t longest = NAME_MAX - (sizeof("-flat.vmdk") - 1);

const std::vector<OddName> odd_names = {{"Newline", "a\nERR - forged line\nb"},
                                        {"Conversions", "%s%n%d%1000000s%%"},
                                        {"NoUtf8", "a\xff\xfe\xc3(\x80"},
                                        {"ControlCharacters", "a\x1b[2J\r\t\x7f\x01"},
                                        {"AsLongAsCanBe", std::string(longest, 'n')},
                                        {"BlanksAndQuotes", " a '\"`$(touch x)` "},
                                        {"OnlyDots", "..."},
                                        {"Backslashes", "a\\b\\..\\c"},
                                        {"LeadingDash", "-rf"},
                                        {"NamesOfTheImage", "_vmir"}};

class OddNames : public HostileImage, public testing::WithParamInterface<OddName>
{
protected:
    const std::string name = GetParam().disk;
};

TEST_P(OddNames, OfADisk)
{
    make_disk("vm/" + name);
    order.disks = {entry("vm/" + name)};
    const Attempt attempt = prepare();
    ASSERT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.out,
              std::vector<std::string>{"[ds] " + std::string(image) + "/_vmir/" + name + ".vmdk"});
    EXPECT_TRUE(fs::equivalent(in_view(name + "-flat.vmdk"), at("vm/" + name + ".vmdk")));
    EXPECT_THAT(bytes_of(in_view(name + ".vmdk")),
                testing::HasSubstr("VMFS \"" + name + "-flat.vmdk\"\r\n"));
}

TEST_P(OddNames, OfADisksFolder)
{
    make_disk(name + "/a");
    order.disks = {entry(name + "/a")};
    // In a folder of the view's name it would lie in the view.
    EXPECT_EQ(prepare().status, name == "_vmir" ? EC_INVALID_PARAMETER : EC_OK);
}

TEST_P(OddNames, OfWhatIsTakenAwayWithTheView)
{
    plant::file(in_view(name + "/" + name), "leftover");
    plant::link(in_view("out-" + name.substr(0, longest - 4)), host / "folder");
    order.disks = {entry("vm/a"), entry("vm/missing")};
    expect_failed_without_view(EC_FILE_NOT_FOUND);
}

INSTANTIATE_TEST_SUITE_P(Names, OddNames, testing::ValuesIn(odd_names),
                         testing::PrintToStringParamName());

// The second gets "(1)", for which there is no room.
TEST_F(HostileImage, TwoDisksWithTheLongestNameFailWithoutAView)
{
    const std::string name(longest, 'n');
    make_disk("vm/" + name);
    make_disk("vm1/" + name);
    order.disks = {entry("vm/" + name), entry("vm1/" + name)};
    const Attempt attempt = prepare();
    EXPECT_NE(attempt.status, EC_OK);
    EXPECT_NE(attempt.status, -1) << "it ended";
    EXPECT_FALSE(fs::exists(at("_vmir")));
}

} // namespace
