#include "ixfs_vmir.h"

#include "string_of.h"

#include <gtest/gtest.h>

#include <string>

namespace
{

using Derivation = void (*)(const LmfString& in, LmfString& out);

std::string derived(Derivation derive, const std::string& in)
{
    LmfString out = string_of("before");
    derive(string_of(in), out);
    return out.text();
}

void expect_refused(Derivation derive, const std::string& in, const std::string& function)
{
    SCOPED_TRACE(in);
    LmfString out = string_of("before");
    try {
        derive(string_of(in), out);
        ADD_FAILURE() << "derived " << out.text();
    } catch (const EcStatusException& exception) {
        EXPECT_EQ(exception.status, 20);
        EXPECT_EQ(exception.message, function + ": error code: 20, invalid parameter");
    }
    EXPECT_EQ(out.text(), "before");
}

std::string base_name_of_segment(const std::string& segment)
{
    return derived(buildBaseName, "[ds] backups/h/allusers/full/1/vm/" + segment);
}

constexpr char disk_entry[] = "[ds] backups/h/allusers/full/1/vm/a.vmdk.desc";

TEST(DiskPaths, OfAnOrdinaryEntry)
{
    EXPECT_EQ(derived(buildDatastore, disk_entry), "[ds]");
    EXPECT_EQ(derived(buildOriginalDescPath, disk_entry),
              "backups/h/allusers/full/1/vm/a.vmdk.desc");
    EXPECT_EQ(derived(buildOriginalVmdkPath, "backups/h/allusers/full/1/vm/a.vmdk.desc"),
              "backups/h/allusers/full/1/vm/a.vmdk");
    EXPECT_EQ(derived(buildBaseName, disk_entry), "a");
}

// ---- Datastore

TEST(DiskPaths, DatastoreEndsAtTheFirstBracket)
{
    EXPECT_EQ(derived(buildDatastore, "[ds] a]b.vmdk.desc"), "[ds]");
    EXPECT_EQ(derived(buildDatastore, "]"), "]");
    EXPECT_EQ(derived(buildDatastore, "no opening] x"), "no opening]");
}

TEST(DiskPaths, DatastoreWithoutBracketIsRefused)
{
    expect_refused(buildDatastore, "backups/x.vmdk.desc", "buildDatastore");
    expect_refused(buildDatastore, "", "buildDatastore");
}

TEST(DiskPaths, NoBlankBehindTheBracketStillWorks)
{
    EXPECT_EQ(derived(buildDatastore, "[ds]backups/x.vmdk.desc"), "[ds]");
    EXPECT_EQ(derived(buildOriginalDescPath, "[ds]backups/x.vmdk.desc"), "backups/x.vmdk.desc");
    LmfString out;
    buildDatastoreViewDescPath(string_of("[ds]"), string_of("backups/_vmir/x.vmdk"), out);
    EXPECT_EQ(out.text(), "[ds] backups/_vmir/x.vmdk");
}

// ---- Original paths

TEST(DiskPaths, OriginalDescPathWithoutBackupsIsRefused)
{
    expect_refused(buildOriginalDescPath, "[ds] data/x.vmdk.desc", "buildOriginalDescPath");
    expect_refused(buildOriginalDescPath, "[ds] Backups/x.vmdk.desc", "buildOriginalDescPath");
}

TEST(DiskPaths, OriginalDescPathWithoutBracketIsRefused)
{
    expect_refused(buildOriginalDescPath, "backups/x.vmdk.desc", "buildOriginalDescPath");
}

TEST(DiskPaths, BackupsBeforeTheBracketDoesNotCount)
{
    expect_refused(buildOriginalDescPath, "[backups] data/x.vmdk.desc", "buildOriginalDescPath");
    EXPECT_EQ(derived(buildOriginalDescPath, "[backups] backups/x.vmdk.desc"),
              "backups/x.vmdk.desc");
}

TEST(DiskPaths, FirstBackupsBehindTheBracketCountsEvenInsideAName)
{
    EXPECT_EQ(derived(buildOriginalDescPath, "[ds] mybackups/backups/x.vmdk.desc"),
              "backups/backups/x.vmdk.desc");
}

TEST(DiskPaths, OriginalVmdkPathEndsAtTheLastDesc)
{
    EXPECT_EQ(derived(buildOriginalVmdkPath, "a.desc/b.vmdk.desc"), "a.desc/b.vmdk");
    EXPECT_EQ(derived(buildOriginalVmdkPath, "a.vmdk.desc.bak"), "a.vmdk");
    EXPECT_EQ(derived(buildOriginalVmdkPath, ".desc"), "");
}

TEST(DiskPaths, OriginalVmdkPathWithoutDescIsRefused)
{
    expect_refused(buildOriginalVmdkPath, "backups/a.vmdk", "buildOriginalVmdkPath");
    expect_refused(buildOriginalVmdkPath, "backups/a.DESC", "buildOriginalVmdkPath");
}

// ---- Base name

TEST(DiskPaths, BaseNameLosesASuffixOfSixCharacters)
{
    EXPECT_EQ(base_name_of_segment("web-000002.vmdk.desc"), "web");
    EXPECT_EQ(base_name_of_segment("web-abcdef.vmdk.desc"), "web");
    EXPECT_EQ(base_name_of_segment("a-1-000001.vmdk.desc"), "a-1");
    EXPECT_EQ(base_name_of_segment("web-gr\xfc\xfc\xfcn.vmdk.desc"), "web");
}

TEST(DiskPaths, BaseNameKeepsASuffixOfAnotherLength)
{
    EXPECT_EQ(base_name_of_segment("web-db.vmdk.desc"), "web-db");
    EXPECT_EQ(base_name_of_segment("my-disk-1.vmdk.desc"), "my-disk-1");
    EXPECT_EQ(base_name_of_segment("web-00001.vmdk.desc"), "web-00001");
    EXPECT_EQ(base_name_of_segment("web-0000001.vmdk.desc"), "web-0000001");
    EXPECT_EQ(base_name_of_segment("web-.vmdk.desc"), "web-");
}

TEST(DiskPaths, OnlyTheLastDashOfABaseNameCounts)
{
    EXPECT_EQ(base_name_of_segment("a-000001-b.vmdk.desc"), "a-000001-b");
    EXPECT_EQ(base_name_of_segment("a-00-000.vmdk.desc"), "a-00-000");
}

TEST(DiskPaths, BaseNameThatIsAllSuffixBecomesEmpty)
{
    EXPECT_EQ(base_name_of_segment("-000001.vmdk.desc"), "");
    EXPECT_EQ(base_name_of_segment(".vmdk.desc"), "");
}

TEST(DiskPaths, BaseNameEndsAtTheLastVmdkDesc)
{
    EXPECT_EQ(base_name_of_segment("a.vmdk.desc.vmdk.desc"), "a.vmdk.desc");
    EXPECT_EQ(base_name_of_segment("a.vmdk.desc.bak"), "a");
}

TEST(DiskPaths, BaseNameWithoutVmdkDescIsRefused)
{
    expect_refused(buildBaseName, "[ds] backups/disk.vmdk", "buildBaseName");
    expect_refused(buildBaseName, "[ds] backups/disk.desc", "buildBaseName");
    expect_refused(buildBaseName, "", "buildBaseName");
}

TEST(DiskPaths, OnlyTheLastSegmentMakesTheBaseName)
{
    EXPECT_EQ(derived(buildBaseName, "x.vmdk.desc/y-000001.vmdk.desc"), "y");
    expect_refused(buildBaseName, "[ds] backups/x.vmdk.desc/y", "buildBaseName");
    EXPECT_EQ(derived(buildBaseName, "alone.vmdk.desc"), "alone");
    EXPECT_EQ(derived(buildBaseName, "a/b.vmdk.desc//"), "b");
}

// The first segment keeps its separators.
TEST(DiskPaths, OnlySegmentOfAnAbsolutePathMakesTheBaseName)
{
    EXPECT_EQ(derived(buildBaseName, "/alone.vmdk.desc"), "/alone");
    EXPECT_EQ(derived(buildBaseName, "//alone.vmdk.desc/"), "//alone");
    expect_refused(buildBaseName, "//", "buildBaseName");
}

// ---- View paths

TEST(DiskPaths, ViewPathsAreTheViewFolderAndTheBaseName)
{
    LmfString out;
    buildViewDescPath(string_of("backups/_vmir"), string_of("vm1"), out);
    EXPECT_EQ(out.text(), "backups/_vmir/vm1.vmdk");
    buildViewVmdkPath(string_of("backups/_vmir"), string_of("vm1"), out);
    EXPECT_EQ(out.text(), "backups/_vmir/vm1-flat.vmdk");
}

TEST(DiskPaths, ViewPathsOfAnEmptyBaseName)
{
    LmfString out;
    buildViewDescPath(string_of("_vmir"), string_of(""), out);
    EXPECT_EQ(out.text(), "_vmir/.vmdk");
    buildViewVmdkPath(string_of("_vmir"), string_of(""), out);
    EXPECT_EQ(out.text(), "_vmir/-flat.vmdk");
}

TEST(DiskPaths, BlankStandsBeforeTheViewPathEvenWithoutADatastore)
{
    LmfString out;
    buildDatastoreViewDescPath(string_of(""), string_of("x.vmdk"), out);
    EXPECT_EQ(out.text(), " x.vmdk");
}

TEST(DiskPaths, PlatformPathJoinsBaseAndRelative)
{
    const LmfPathname path =
        convertUnixPathToPlatformPath(string_of("/mnt/a"), string_of("backups/x"));
    EXPECT_EQ(path.text(), "/mnt/a/backups/x");
    EXPECT_EQ(convertUnixPathToPlatformPath(string_of(""), string_of("x")).text(), "x");
}

// ---- All of them

TEST(DiskPaths, OutMayBeIn)
{
    LmfString text = string_of(disk_entry);
    buildOriginalDescPath(text, text);
    buildOriginalVmdkPath(text, text);
    EXPECT_EQ(text.text(), "backups/h/allusers/full/1/vm/a.vmdk");
    text = disk_entry;
    buildBaseName(text, text);
    buildViewDescPath(string_of("v"), text, text);
    EXPECT_EQ(text.text(), "v/a.vmdk");
    text = disk_entry;
    buildDatastore(text, text);
    buildDatastoreViewDescPath(text, text, text);
    EXPECT_EQ(text.text(), "[ds] [ds]");
}

TEST(DiskPaths, LongPathsAreNotCut)
{
    const std::string folder(5000, 'f');
    EXPECT_EQ(derived(buildOriginalDescPath, "[ds] backups/" + folder + "/a.vmdk.desc"),
              "backups/" + folder + "/a.vmdk.desc");
    EXPECT_EQ(base_name_of_segment(folder + ".vmdk.desc"), folder);
}

} // namespace
