#include "descriptor_test.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace
{

using testing::ContainsRegex;

const std::string old_uuid = "ddb.uuid = \"60 00 C2 9f 11 f8 50 a5-18 4c 8d 2f 00 23 4d 0a\"\n";

// A descriptor as ESXi writes it.
const std::string first_lines = "# Disk DescriptorFile\n"
                                "version=1\n"
                                "encoding=\"UTF-8\"\n"
                                "CID=fffffffe\n"
                                "parentCID=ffffffff\n"
                                "createType=\"vmfs\"\n"
                                "\n"
                                "# Extent description\n";
const std::string tail = "\n"
                         "# The Disk Data Base \n"
                         "#DDB\n"
                         "\n"
                         "ddb.adapterType = \"lsilogic\"\n"
                         "ddb.geometry.cylinders = \"130\"\n";

std::string with_crlf(const std::string& text)
{
    std::string changed;
    for (const char c : text)
        changed += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return changed;
}

class DescriptorCopy : public DescriptorTest
{
protected:
    void ask_for_new_uuids() { handle = make_handle(IXFS_FLAG_NEW_DISK_UUID); }

    // The UUIDs that were logged as new.
    std::vector<std::string> new_uuids() const
    {
        const std::string prefix = "INF - New uuid: ";
        std::vector<std::string> found;
        for (const Line& line : log.lines()) {
            if (line.message.compare(0, prefix.size(), prefix) != 0)
                continue;
            EXPECT_EQ(line.severity, IXFS_LOG_INF);
            EXPECT_EQ(line.tag, "_ixfs_copy_desc()");
            EXPECT_EQ(line.message.back(), '\n');
            found.push_back(
                line.message.substr(prefix.size(), line.message.size() - prefix.size() - 1));
        }
        return found;
    }
};

// ---- The extent line ----------------------------------------------------------------------------

TEST_F(DescriptorCopy, OnlyTheExtentLineIsRewritten)
{
    EXPECT_EQ(copy(first_lines + old_extent + tail), 1);
    EXPECT_EQ(copied(), first_lines + new_extent + tail);
    EXPECT_EQ(log.take(), Lines{extent_line()});
    EXPECT_EQ(dir.read("old"), first_lines + old_extent + tail);
}

TEST_F(DescriptorCopy, WhatFollowsTheOldFileNameIsDropped)
{
    EXPECT_EQ(copy("RW 2048 VMFS \"vm-flat.vmdk\" 0 # first\nend\n"), 1);
    EXPECT_EQ(copied(), new_extent + "end\n");
}

TEST_F(DescriptorCopy, ExtentLineIsCutAtTheFirstKeyword)
{
    EXPECT_EQ(copy("RW 7 VMFS VMFS \"a VMFS b\"\n"), 1);
    EXPECT_EQ(copied(), "RW 7 VMFS \"vm1-flat.vmdk\"\r\n");
}

TEST_F(DescriptorCopy, OnlyTheFirstOfTwoExtentLinesIsRewritten)
{
    const std::string others = "RW 1024 VMFS \"vm-flat2.vmdk\"\nRW 63 ZERO\nRW 1 FLAT \"x\" 0\n";
    EXPECT_EQ(copy(old_extent + others), 1);
    EXPECT_EQ(copied(), new_extent + others);
    EXPECT_EQ(log.take(), Lines{extent_line()});
}

TEST_F(DescriptorCopy, ReadOnlyExtentsAreOrdinaryLines)
{
    const std::string read_only = "RDONLY 2048 VMFS \"base-flat.vmdk\"\nRDONLY 63 ZERO\n";
    EXPECT_EQ(copy(read_only + old_extent), 1);
    EXPECT_EQ(copied(), read_only + new_extent);
}

TEST_F(DescriptorCopy, ExtentNameIsWrittenAsItStands)
{
    const std::string name = "a \"quoted\" %s name\twith (1) \xe4\xb8\xad-flat.vmdk";
    EXPECT_EQ(copy(old_extent, name), 1);
    EXPECT_EQ(copied(), "RW 2048 VMFS \"" + name + "\"\r\n");
    EXPECT_EQ(log.take(), Lines{extent_line(name)});
}

TEST_F(DescriptorCopy, ExtentNameIsCutAt1023Bytes)
{
    const std::string name(1023, 'n');
    for (const std::string& longer : {name, name + "x", name + std::string(4000, 'x')}) {
        EXPECT_EQ(copy(old_extent, longer), 1);
        EXPECT_EQ(copied(), "RW 2048 VMFS \"" + name + "\"\r\n");
        EXPECT_EQ(log.take(), Lines{extent_line(name)});
    }
}

TEST_F(DescriptorCopy, NullExtentNameIsWrittenAsFormattersWriteIt)
{
    dir.write("old", old_extent);
    const std::string old_path = dir / "old";
    const std::string new_path = dir / "new";
    EXPECT_EQ(_ixfs_copy_desc(handle.get(), old_path.c_str(), new_path.c_str(), nullptr), 1);
    EXPECT_EQ(copied(), "RW 2048 VMFS \"(null)\"\r\n");
    EXPECT_EQ(log.take(), Lines{extent_line("(null)")});
}

// ---- Lines that are not recognised --------------------------------------------------------------

TEST_F(DescriptorCopy, WithoutAnExtentLineAllIsCopiedAndTheCopyFails)
{
    EXPECT_EQ(copy(first_lines + tail), 0);
    EXPECT_EQ(copied(), first_lines + tail);
    EXPECT_EQ(log.take(), Lines{no_extent_line});
}

TEST_F(DescriptorCopy, EmptyDescriptorFails)
{
    EXPECT_EQ(copy(""), 0);
    EXPECT_EQ(copied(), "");
    EXPECT_EQ(log.take(), Lines{no_extent_line});
}

TEST_F(DescriptorCopy, ExtentOfAnotherTypeEndsTheCopy)
{
    for (const std::string extent :
         {"RW 2048 FLAT \"vm-flat.vmdk\" 0\n", "RW 2048 VMFSSPARSE \"vm-delta.vmdk\"\n",
          "RW 2048 SESPARSE \"vm-sesparse.vmdk\"\n", "RW 63 ZERO\n", "RW 2048 vmfs \"vm.vmdk\"\n",
          "RW 2048 VMFS\n", "RW VMFS\n", "RW \n"}) {
        EXPECT_EQ(copy(first_lines + extent + tail), 0) << extent;
        EXPECT_EQ(copied(), first_lines) << extent;
        EXPECT_EQ(log.take(), (Lines{no_keyword_line, no_extent_line})) << extent;
    }
}

TEST_F(DescriptorCopy, ExtentLineMustBeginWithItsFirstCharacters)
{
    const std::string unlike =
        "  RW 2048 VMFS \"a\"\n\tRW 1 VMFS \"a\"\nrw 1 VMFS \"a\"\nRW\t1 VMFS "
        "\"a\"\nRWX 1 VMFS \"a\"\n# RW 1 VMFS \"a\"\n";
    EXPECT_EQ(copy(unlike), 0);
    EXPECT_EQ(copied(), unlike);
    EXPECT_EQ(log.take(), Lines{no_extent_line});
}

TEST_F(DescriptorCopy, UuidLineMustBeginWithItsFirstCharacters)
{
    const std::string unlike =
        "ddb.uuid=\"60 00\"\n  ddb.uuid = \"60 00\"\nddb.uuid.image = \"60\"\n"
        "DDB.UUID = \"60\"\nddb.uuid\t= \"60\"\n# ddb.uuid = \"60\"\n";
    ask_for_new_uuids();
    EXPECT_EQ(copy(old_extent + unlike), 1);
    EXPECT_EQ(copied(), new_extent + unlike);
    EXPECT_EQ(log.take(), Lines{extent_line()});
}

// ---- Disk UUIDs ---------------------------------------------------------------------------------

TEST_F(DescriptorCopy, UuidStaysUnlessANewOneIsAskedFor)
{
    EXPECT_EQ(copy(old_extent + old_uuid), 1);
    EXPECT_EQ(copied(), new_extent + old_uuid);
}

TEST_F(DescriptorCopy, NewUuidHasTheFormThatDescriptorsUse)
{
    ask_for_new_uuids();
    EXPECT_EQ(copy(old_extent + old_uuid + tail), 1);
    const std::vector<std::string> uuids = new_uuids();
    ASSERT_EQ(uuids.size(), 1);
    EXPECT_EQ(uuids[0].size(), 47);
    EXPECT_THAT(uuids[0],
                ContainsRegex("^([0-9a-f]{2} ){7}[0-9a-f]{2}-([0-9a-f]{2} ){7}[0-9a-f]{2}$"));
    EXPECT_EQ(copied(), new_extent + "ddb.uuid = \"" + uuids[0] + "\"\r\n" + tail);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[0], extent_line());
}

TEST_F(DescriptorCopy, EachUuidLineGetsAUuidOfItsOwn)
{
    ask_for_new_uuids();
    EXPECT_EQ(copy(old_uuid + old_extent + "ddb.uuid \n"), 1) << "also before the extent line";
    const std::vector<std::string> uuids = new_uuids();
    ASSERT_EQ(uuids.size(), 2);
    EXPECT_NE(uuids[0], uuids[1]);
    EXPECT_EQ(copied(), "ddb.uuid = \"" + uuids[0] + "\"\r\n" + new_extent + "ddb.uuid = \"" +
                            uuids[1] + "\"\r\n");
}

TEST_F(DescriptorCopy, NoUuidIsDrawnBehindAnExtentOfAnotherType)
{
    ask_for_new_uuids();
    EXPECT_EQ(copy("RW 1 FLAT \"x\" 0\n" + old_uuid), 0);
    EXPECT_EQ(log.take(), (Lines{no_keyword_line, no_extent_line}));
}

// ---- Line ends, NULs and long lines -------------------------------------------------------------

TEST_F(DescriptorCopy, CrlfThroughoutStaysCrlf)
{
    EXPECT_EQ(copy(with_crlf(first_lines + old_extent + tail)), 1);
    EXPECT_EQ(copied(), with_crlf(first_lines) + new_extent + with_crlf(tail));
}

TEST_F(DescriptorCopy, LastLineMayLackItsNewline)
{
    EXPECT_EQ(copy(old_extent + "ddb.toolsVersion = \"0\""), 1);
    EXPECT_EQ(copied(), new_extent + "ddb.toolsVersion = \"0\"");
    EXPECT_EQ(copy(first_lines + "RW 2048 VMFS \"vm-flat.vmdk\""), 1);
    EXPECT_EQ(copied(), first_lines + new_extent) << "a rewritten line gets its end";
}

TEST_F(DescriptorCopy, TrailingNulsAreNotCopied)
{
    EXPECT_EQ(copy(old_extent + tail + std::string(3000, '\0')), 1);
    EXPECT_EQ(copied(), new_extent + tail);
}

TEST_F(DescriptorCopy, NulEndsTheLineThatItStandsIn)
{
    using namespace std::string_literals;
    EXPECT_EQ(copy("first\0lost\n"s + old_extent + "RW\0lost\nlast\n"s), 1);
    EXPECT_EQ(copied(), "first" + new_extent + "RWlast\n");
    EXPECT_EQ(copy("RW 1\0 VMFS \"a\"\n"s + old_extent), 0) << "the keyword is behind the NUL";
    EXPECT_EQ(copied(), "");
}

TEST_F(DescriptorCopy, LongLinesAreCopiedWhole)
{
    for (const std::size_t length : {1022U, 1023U, 1024U, 2046U, 4096U}) {
        const std::string line = std::string(length, 'x') + "\n";
        EXPECT_EQ(copy(line + old_extent + line), 1) << length;
        EXPECT_EQ(copied(), line + new_extent + line) << length;
    }
}

TEST_F(DescriptorCopy, PieceOfALongLineCountsAsALine)
{
    const std::string first_piece(1023, 'x');
    EXPECT_EQ(copy(first_piece + old_extent), 1);
    EXPECT_EQ(copied(), first_piece + new_extent);

    ask_for_new_uuids();
    EXPECT_EQ(copy(old_extent + first_piece + old_uuid), 1);
    EXPECT_EQ(new_uuids().size(), 1);
}

TEST_F(DescriptorCopy, RestOfALongExtentLineIsCopied)
{
    const std::string front = "RW 2048 VMFS \"";
    const std::string first_piece = front + std::string(1023 - front.size(), 'n');
    EXPECT_EQ(copy(first_piece + "rest.vmdk\"\n" + tail), 1);
    EXPECT_EQ(copied(), new_extent + "rest.vmdk\"\n" + tail);
}

TEST_F(DescriptorCopy, KeywordBehindThePieceIsNotFound)
{
    EXPECT_EQ(copy("RW " + std::string(1020, '9') + old_extent), 0);
    EXPECT_EQ(copied(), "");
    EXPECT_EQ(log.take(), (Lines{no_keyword_line, no_extent_line}));
}

TEST_F(DescriptorCopy, BytesOfOtherCodePagesAreCopied)
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '\n')
            bytes += static_cast<char>(byte);
    }
    EXPECT_EQ(copy(bytes + "\n" + old_extent + bytes), 1);
    EXPECT_EQ(copied(), bytes + "\n" + new_extent + bytes);
}

} // namespace
