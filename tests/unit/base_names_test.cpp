#include "ixfs_vmir.h"

#include "string_of.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace
{

using Texts = std::vector<std::string>;

Texts texts(const std::set<LmfString>& names)
{
    Texts texts;
    for (const LmfString& name : names)
        texts.push_back(name.text());
    return texts;
}

class BaseNames : public testing::Test
{
protected:
    // Gives a name out. Returns it as it came back.
    std::string give_out(const std::string& name)
    {
        LmfString base_name = string_of(name);
        changed = ensureUniquenessOfBasename(used, base_name);
        return base_name.text();
    }

    std::set<LmfString> used;
    bool changed = false;
};

TEST_F(BaseNames, FirstNameIsKept)
{
    EXPECT_EQ(give_out("disk"), "disk");
    EXPECT_FALSE(changed);
    EXPECT_EQ(texts(used), (Texts{"disk"}));
}

TEST_F(BaseNames, SecondEqualNameGetsNumber1)
{
    used = {string_of("disk")};
    EXPECT_EQ(give_out("disk"), "disk(1)");
    EXPECT_TRUE(changed);
    EXPECT_EQ(texts(used), (Texts{"disk", "disk(1)"}));
}

TEST_F(BaseNames, ThirdEqualNameGetsNumber2)
{
    used = {string_of("disk"), string_of("disk(1)")};
    EXPECT_EQ(give_out("disk"), "disk(2)");
    EXPECT_TRUE(changed);
    EXPECT_EQ(texts(used), (Texts{"disk", "disk(1)", "disk(2)"}));
}

TEST_F(BaseNames, CaseMatters)
{
    used = {string_of("disk")};
    EXPECT_EQ(give_out("Disk"), "Disk");
    EXPECT_FALSE(changed);
    EXPECT_EQ(texts(used), (Texts{"Disk", "disk"}));
}

TEST_F(BaseNames, EmptyNameIsHandledAsAnyOther)
{
    EXPECT_EQ(give_out(""), "");
    EXPECT_FALSE(changed);
    EXPECT_EQ(give_out(""), "(1)");
    EXPECT_TRUE(changed);
}

TEST_F(BaseNames, NumberThatAnUnchangedNameHoldsIsSkipped)
{
    give_out("a(1)");
    EXPECT_EQ(give_out("a"), "a");
    EXPECT_EQ(give_out("a"), "a(2)");
}

TEST_F(BaseNames, LowestFreeNumberIsTaken)
{
    used = {string_of("a"), string_of("a(2)")};
    EXPECT_EQ(give_out("a"), "a(1)");
    EXPECT_EQ(give_out("a"), "a(3)");
}

TEST_F(BaseNames, NumberedNameThatIsTakenGetsANumberOfItsOwn)
{
    used = {string_of("a(1)")};
    EXPECT_EQ(give_out("a(1)"), "a(1)(1)");
}

TEST_F(BaseNames, NumbersHaveNoUpperLimitAndNoLeadingZeros)
{
    EXPECT_EQ(give_out("disk"), "disk");
    for (int number = 1; number <= 1200; ++number)
        ASSERT_EQ(give_out("disk"), "disk(" + std::to_string(number) + ")");
    EXPECT_EQ(used.size(), 1201U);
}

TEST_F(BaseNames, NamesThatOnlyShareTheirFrontDoNotMeet)
{
    EXPECT_EQ(give_out("disk"), "disk");
    EXPECT_EQ(give_out("disk-1"), "disk-1");
    EXPECT_EQ(give_out("dis"), "dis");
    EXPECT_EQ(give_out("disk("), "disk(");
}

TEST_F(BaseNames, CodePageMakesNoDifferenceAndIsKept)
{
    used = {
        LmfString("disk", LmfString::to_nul, StringConverter::getDefaultNarrowCodePage(false), 0)};
    LmfString name = string_of("disk");
    EXPECT_TRUE(ensureUniquenessOfBasename(used, name));
    EXPECT_EQ(name.text(), "disk(1)");
    EXPECT_EQ(name.code_page(), StringConverter::getUtf8CodePage());
}

} // namespace
