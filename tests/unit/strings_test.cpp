#include "lmf_pathname.h"
#include "lmf_string.h"

#include "string_of.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

CodePageDef* narrow()
{
    return StringConverter::getDefaultNarrowCodePage(false);
}

CodePageDef* utf8()
{
    return StringConverter::getUtf8CodePage();
}

LmfPathname path_of(const char* text)
{
    LmfPathname path;
    path.makeFilename(text, false);
    return path;
}

std::string joined(const char* path, const char* name)
{
    LmfPathname joined = path_of(path);
    joined.makeFilename(name, true);
    return joined.text();
}

using Texts = std::vector<std::string>;

// The segments as the folder code walks them: from 1 until there is none.
Texts segments_of(const char* text)
{
    const NameSegments path(text);
    Texts segments;
    for (long i = 1; const char* const segment = path.getSegment(i, nullptr, nullptr); ++i)
        segments.push_back(segment);
    return segments;
}

std::string last_segment_of(const char* text)
{
    const NameSegments path(text);
    const char* const segment = path.getSegment(-1, nullptr, nullptr);
    return segment != nullptr ? segment : "none";
}

// ---- Code pages

TEST(Strings, CodePageOfANameIsAlwaysTheSame)
{
    EXPECT_NE(getCodePageMgr().getCodePageId(""), nullptr);
    EXPECT_EQ(getCodePageMgr().getCodePageId(""), getCodePageMgr().getCodePageId(""));
    EXPECT_NE(getCodePageMgr().getCodePageId("UTF8"), nullptr);
    EXPECT_EQ(getCodePageMgr().getCodePageId("UTF8"), getCodePageMgr().getCodePageId("UTF8"));
    EXPECT_EQ(&getCodePageMgr(), &getCodePageMgr());
}

TEST(Strings, CodePageWithoutANameIsTheDefault)
{
    EXPECT_EQ(getCodePageMgr().getCodePageId(nullptr), getCodePageMgr().getCodePageId(""));
}

TEST(Strings, CachesAreFilledAtTheFirstNeed)
{
    StringConverter::s_defaultNarrowCodePageId = nullptr;
    StringConverter::s_utf8CodePageId = nullptr;
    EXPECT_EQ(StringConverter::getDefaultNarrowCodePage(true), nullptr);
    EXPECT_EQ(StringConverter::s_defaultNarrowCodePageId, nullptr);

    EXPECT_EQ(narrow(), getCodePageMgr().getCodePageId(""));
    EXPECT_EQ(StringConverter::s_defaultNarrowCodePageId, getCodePageMgr().getCodePageId(""));
    EXPECT_EQ(StringConverter::getDefaultNarrowCodePage(true), getCodePageMgr().getCodePageId(""));

    EXPECT_EQ(utf8(), getCodePageMgr().getCodePageId("UTF8"));
    EXPECT_EQ(StringConverter::s_utf8CodePageId, getCodePageMgr().getCodePageId("UTF8"));
}

// ---- Strings

TEST(Strings, DefaultStringIsEmptyInTheDefaultNarrowCodePage)
{
    const LmfString string;
    EXPECT_EQ(string.text(), "");
    EXPECT_STREQ(string.utf8_str(), "");
    EXPECT_EQ(string.code_page(), narrow());
}

TEST(Strings, LengthOfAllOnesTakesTheTextUpToItsNul)
{
    const LmfString string("text\0behind", static_cast<unsigned long>(-1), utf8(), 0);
    EXPECT_EQ(string.text(), "text");
    EXPECT_EQ(string.code_page(), utf8());
}

TEST(Strings, OtherLengthsTakeExactlyThatManyBytes)
{
    EXPECT_EQ(LmfString("a\0b!", 3, utf8(), 0).text(), std::string("a\0b", 3));
    EXPECT_EQ(LmfString("text", 0, utf8(), 0).text(), "");
}

TEST(Strings, NullTextIsEmptyAndNullCodePageIsTheDefault)
{
    const LmfString string(nullptr, LmfString::to_nul, nullptr, 0);
    EXPECT_EQ(string.text(), "");
    EXPECT_EQ(string.code_page(), narrow());
}

TEST(Strings, CopyTakesTextAndCodePage)
{
    const LmfString original("text", LmfString::to_nul, utf8(), 0);
    const LmfString copy(original);
    EXPECT_EQ(copy.text(), "text");
    EXPECT_EQ(copy.code_page(), utf8());

    LmfString assigned;
    assigned = original;
    EXPECT_EQ(assigned.text(), "text");
    EXPECT_EQ(assigned.code_page(), utf8());
}

TEST(Strings, AssignedTextReplacesTheTextAndKeepsTheCodePage)
{
    LmfString string("before", LmfString::to_nul, utf8(), 0);
    string = "characters";
    EXPECT_EQ(string.text(), "characters");
    string = std::string("bytes\0and more", 14);
    EXPECT_EQ(string.text(), std::string("bytes\0and more", 14));
    string = static_cast<const char*>(nullptr);
    EXPECT_EQ(string.text(), "");
    EXPECT_EQ(string.code_page(), utf8());
}

TEST(Strings, TextCanBeAppendedTo)
{
    LmfString string = string_of("disk");
    string.text() += "-flat";
    EXPECT_STREQ(string.utf8_str(), "disk-flat");
}

TEST(Strings, BytesThatAreNoUtf8GoOutAsTheyCameIn)
{
    const char latin_and_gbk[] = "gr\xfc\xdf"
                                 "e \xc4\xe3\xba\xc3 \xff\x80";
    EXPECT_STREQ(string_of(latin_and_gbk).utf8_str(), latin_and_gbk);
}

TEST(Strings, AbcOrdersBeforeAbdAndBeforeAbcd)
{
    EXPECT_LT(string_of("abc"), string_of("abd"));
    EXPECT_LT(string_of("abc"), string_of("abcd"));
    EXPECT_FALSE(string_of("abd") < string_of("abc"));
    EXPECT_FALSE(string_of("abcd") < string_of("abc"));
    EXPECT_FALSE(string_of("abc") < string_of("abc"));
}

TEST(Strings, UpperCaseOrdersBeforeLowerCase)
{
    EXPECT_LT(string_of("ABC"), string_of("abc"));
    EXPECT_FALSE(string_of("abc") < string_of("ABC"));
}

TEST(Strings, BytesAreComparedAsUnsigned)
{
    EXPECT_LT(string_of("z"), string_of("\x80"));
    EXPECT_LT(string_of("\x7f"), string_of("\xff"));
}

TEST(Strings, CodePagePlaysNoPartInTheOrder)
{
    std::set<LmfString> names;
    names.insert(LmfString("disk", LmfString::to_nul, narrow(), 0));
    EXPECT_FALSE(names.insert(LmfString("disk", LmfString::to_nul, utf8(), 0)).second);
}

TEST(Strings, BothTypesCanBeDerivedFrom)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<LmfString>);
    EXPECT_TRUE(std::has_virtual_destructor_v<LmfPathname>);
}

// ---- Pathnames

TEST(Strings, DefaultPathnameIsEmptyWithoutSegments)
{
    const LmfPathname path;
    EXPECT_EQ(path.text(), "");
    EXPECT_EQ(path.segments(), nullptr);
}

TEST(Strings, NameAppendedToAnEmptyPathnameGetsNoSeparator)
{
    EXPECT_EQ(joined("", "backups"), "backups");
}

TEST(Strings, NameIsAppendedBehindASeparator)
{
    EXPECT_EQ(joined("/mnt/a", "backups/x"), "/mnt/a/backups/x");
}

TEST(Strings, NameWithoutAppendReplacesThePath)
{
    LmfPathname path = path_of("/mnt/a");
    path.makeFilename("b", false);
    EXPECT_EQ(path.text(), "b");
}

TEST(Strings, PathnameCanBeAppendedToItself)
{
    LmfPathname path = path_of("a");
    path.makeFilename(path.text().c_str(), true);
    EXPECT_EQ(path.text(), "a/a");
}

TEST(Strings, NullNameIsEmpty)
{
    LmfPathname path = path_of("a");
    path.makeFilename(nullptr, false);
    EXPECT_EQ(path.text(), "");
}

TEST(Strings, ClearedPathTextIsAnEmptyPath)
{
    LmfPathname path = path_of("/mnt/a");
    path.text().clear();
    path.makeFilename("b", true);
    EXPECT_EQ(path.text(), "b");
}

TEST(Strings, DisplayFormIsThePathText)
{
    EXPECT_STREQ(path_of("/mnt/gr\xfc"
                         "n")
                     .display_str(),
                 "/mnt/gr\xfc"
                 "n");
}

TEST(Strings, SegmentsAreAbsentUntilMadeAndAgainWhenThePathChanges)
{
    LmfPathname path = path_of("/mnt/a");
    EXPECT_EQ(path.segments(), nullptr);
    path.makeSegments();
    ASSERT_NE(path.segments(), nullptr);
    EXPECT_STREQ(path.segments()->getSegment(1, nullptr, nullptr), "/mnt");
    path.makeFilename("b", true);
    EXPECT_EQ(path.segments(), nullptr);
}

TEST(Strings, SegmentMinusOneIsTheLast)
{
    EXPECT_EQ(last_segment_of("/mnt/a/disk.vmdk.desc"), "disk.vmdk.desc");
    EXPECT_EQ(last_segment_of("disk.vmdk.desc"), "disk.vmdk.desc");
}

TEST(Strings, FirstSegmentOfAnAbsolutePathKeepsItsSeparator)
{
    EXPECT_EQ(segments_of("/usr/varnis/var"), (Texts{"/usr", "varnis", "var"}));
}

TEST(Strings, FirstSegmentOfARelativePathHasNoSeparator)
{
    EXPECT_EQ(segments_of("backups/host"), (Texts{"backups", "host"}));
}

TEST(Strings, SegmentsAppendedOneByOneYieldThePrefixesOfThePath)
{
    LmfPathname prefix;
    Texts prefixes;
    for (const std::string& segment : segments_of("/a/b/c")) {
        prefix.makeFilename(segment.c_str(), true);
        prefixes.push_back(prefix.text());
    }
    EXPECT_EQ(prefixes, (Texts{"/a", "/a/b", "/a/b/c"}));
}

TEST(Strings, SegmentOutsideThePathIsNull)
{
    const NameSegments path("/a/b");
    for (const long index : {-2L, 0L, 3L})
        EXPECT_EQ(path.getSegment(index, nullptr, nullptr), nullptr) << index;
    EXPECT_EQ(path.count(), 2);
}

TEST(Strings, EmptyPathHasNoSegment)
{
    EXPECT_EQ(segments_of(""), Texts{});
    EXPECT_EQ(last_segment_of(""), "none");
}

TEST(Strings, RootIsOneSegment)
{
    EXPECT_EQ(segments_of("/"), (Texts{"/"}));
}

TEST(Strings, DoubledAndTrailingSeparatorsMakeNoSegments)
{
    EXPECT_EQ(segments_of("/a//b/"), (Texts{"/a", "b"}));
    EXPECT_EQ(last_segment_of("a/b//"), "b");
}

} // namespace
