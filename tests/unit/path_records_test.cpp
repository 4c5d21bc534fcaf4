#include "ixfs_vmir.h"

#include "handle_test.h"
#include "string_of.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Texts = std::vector<std::string>;

constexpr char view_folder[] = "backups/host/allusers/full/1700000000/_vmir";

// The fields in their order.
Texts fields(const VmirPath& record)
{
    return {record.datastoreDescPath.text(), record.datastore.text(),
            record.originalDescPath.text(),  record.originalVmdkPath.text(),
            record.baseName.text(),          record.viewDescPath.text(),
            record.viewVmdkPath.text(),      record.datastoreViewDescPath.text()};
}

Line failed_path_line(const std::string& step)
{
    return {IXFS_LOG_ERR, "populateVmirPath",
            "ERR - Failed to build vmdk paths for file: " + step +
                ": error code: 20, invalid parameter\n"};
}

class PathRecords : public HandleTest
{
protected:
    void populate(Texts entries)
    {
        populateVmirPathVector(handle.get(), entries, view_path, records);
    }

    // Populates, and expects the step's exception and line.
    void expect_refused(Texts entries, const std::string& step)
    {
        try {
            populate(std::move(entries));
            ADD_FAILURE() << "nothing was thrown";
        } catch (const EcStatusException& exception) {
            EXPECT_EQ(exception.status, 20);
            EXPECT_EQ(exception.message, step + ": error code: 20, invalid parameter");
        }
        EXPECT_EQ(log.take(), (Lines{failed_path_line(step)}));
    }

    LmfString view_path = string_of(view_folder);
    std::vector<VmirPath> records;
};

// ---- Entries to records

TEST_F(PathRecords, DefaultRecordIsEmptyInTheDefaultNarrowCodePage)
{
    const VmirPath record;
    EXPECT_EQ(fields(record), Texts(8));
    EXPECT_EQ(record.datastoreDescPath.code_page(),
              StringConverter::getDefaultNarrowCodePage(false));
}

TEST_F(PathRecords, EntriesBecomeRecordsWithTheFirstFieldAlone)
{
    Texts entries{"[ds] a", "", "no form at all"};
    buildVmirPathVectorFromCharArray(entries, records);
    ASSERT_EQ(records.size(), 3U);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_EQ(fields(records[i]), (Texts{entries[i], "", "", "", "", "", "", ""}));
        EXPECT_EQ(records[i].datastoreDescPath.code_page(), StringConverter::getUtf8CodePage());
    }
}

TEST_F(PathRecords, EntriesReplaceEarlierRecords)
{
    populate({"[ds] backups/a.vmdk.desc", "[ds] backups/b.vmdk.desc"});
    Texts entries{"[other]"};
    buildVmirPathVectorFromCharArray(entries, records);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(fields(records[0]), (Texts{"[other]", "", "", "", "", "", "", ""}));
}

TEST_F(PathRecords, AllBytesOfAnEntryAreTaken)
{
    Texts entries{std::string("[ds]\0behind", 11)};
    buildVmirPathVectorFromCharArray(entries, records);
    EXPECT_EQ(records.at(0).datastoreDescPath.text(), entries[0]);
}

// ---- Filling records

TEST_F(PathRecords, AllFieldsOfARecord)
{
    const std::string entry =
        "[nfs_ds] backups/host/allusers/full/1700000000/vm1/vm1-000001.vmdk.desc";
    populate({entry});
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(
        fields(records[0]),
        (Texts{entry, "[nfs_ds]", "backups/host/allusers/full/1700000000/vm1/vm1-000001.vmdk.desc",
               "backups/host/allusers/full/1700000000/vm1/vm1-000001.vmdk", "vm1",
               "backups/host/allusers/full/1700000000/_vmir/vm1.vmdk",
               "backups/host/allusers/full/1700000000/_vmir/vm1-flat.vmdk",
               "[nfs_ds] backups/host/allusers/full/1700000000/_vmir/vm1.vmdk"}));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(PathRecords, EmptyListYieldsNoRecordsAndLogsNothing)
{
    populate({"[ds] backups/a.vmdk.desc"});
    populate({});
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(PathRecords, EqualNamesInDifferentFoldersAreMadeUniqueInListOrder)
{
    populate({"[ds] backups/a/disk.vmdk.desc", "[ds] backups/b/disk.vmdk.desc"});
    EXPECT_EQ(records.at(0).baseName.text(), "disk");
    EXPECT_EQ(records.at(1).baseName.text(), "disk(1)");
    EXPECT_EQ(records.at(0).viewDescPath.text(), std::string(view_folder) + "/disk.vmdk");
    EXPECT_EQ(records.at(1).viewDescPath.text(), std::string(view_folder) + "/disk(1).vmdk");
    EXPECT_EQ(records.at(1).viewVmdkPath.text(), std::string(view_folder) + "/disk(1)-flat.vmdk");
    EXPECT_EQ(records.at(1).originalVmdkPath.text(), "backups/b/disk.vmdk");
}

TEST_F(PathRecords, NumbersAreGivenOutAsOneByOne)
{
    const Texts names{"a(1)", "a", "b", "a", "a(2)", "a", "", "a(1)", "b", "", "a", "A", "a(1)(1)"};
    Texts entries;
    Texts expected;
    std::set<LmfString> used;
    for (const std::string& name : names) {
        entries.push_back("[ds] backups/" + name + ".vmdk.desc");
        LmfString unique = string_of(name);
        ensureUniquenessOfBasename(used, unique);
        expected.push_back(unique.text());
    }
    populate(entries);
    Texts base_names;
    for (const VmirPath& record : records)
        base_names.push_back(record.baseName.text());
    EXPECT_EQ(base_names, expected);
    EXPECT_EQ(base_names[5], "a(3)");
}

TEST_F(PathRecords, UsedNamesAreForgottenBetweenLists)
{
    populate({"[ds] backups/disk.vmdk.desc"});
    populate({"[ds] backups/disk.vmdk.desc"});
    EXPECT_EQ(records.at(0).baseName.text(), "disk");
}

TEST_F(PathRecords, OneRecordSharesTheCallersUsedNames)
{
    std::set<LmfString> used{string_of("disk")};
    VmirPath record;
    record.datastoreDescPath = string_of("[ds] backups/disk.vmdk.desc");
    populateVmirPath(handle.get(), used, view_path, record);
    EXPECT_EQ(record.baseName.text(), "disk(1)");
    EXPECT_EQ(used.count(string_of("disk(1)")), 1U);
}

TEST_F(PathRecords, EntriesAndViewPathStayAsTheyWere)
{
    const Texts before{"[ds] backups/a/disk.vmdk.desc", "[ds] backups/b/disk.vmdk.desc"};
    Texts entries = before;
    populateVmirPathVector(handle.get(), entries, view_path, records);
    EXPECT_EQ(entries, before);
    EXPECT_EQ(view_path.text(), view_folder);
}

// ---- Malformed entries

TEST_F(PathRecords, EntryWithoutBracketThrows20AfterItsLine)
{
    expect_refused({"backups/x.vmdk.desc"}, "buildDatastore");
}

TEST_F(PathRecords, EachStepThatFailsIsNamedAndKeepsTheEarlierFields)
{
    expect_refused({"[ds] data/x.vmdk.desc"}, "buildOriginalDescPath");
    EXPECT_EQ(fields(records.at(0)),
              (Texts{"[ds] data/x.vmdk.desc", "[ds]", "", "", "", "", "", ""}));

    expect_refused({"[ds] backups/x.vmdk"}, "buildOriginalVmdkPath");
    EXPECT_EQ(fields(records.at(0)),
              (Texts{"[ds] backups/x.vmdk", "[ds]", "backups/x.vmdk", "", "", "", "", ""}));

    expect_refused({"[ds] backups/x.desc"}, "buildBaseName");
    EXPECT_EQ(fields(records.at(0)), (Texts{"[ds] backups/x.desc", "[ds]", "backups/x.desc",
                                            "backups/x", "", "", "", ""}));
}

TEST_F(PathRecords, FirstMalformedEntryLeavesLaterRecordsWithTheFirstFieldAlone)
{
    expect_refused({"[ds] backups/a.vmdk.desc", "malformed", "[ds] backups/c.vmdk.desc"},
                   "buildDatastore");
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].baseName.text(), "a");
    EXPECT_EQ(fields(records[2]), (Texts{"[ds] backups/c.vmdk.desc", "", "", "", "", "", "", ""}));
}

TEST_F(PathRecords, FailureIsNotRecordedOnTheHandle)
{
    expect_refused({"malformed"}, "buildDatastore");
    EXPECT_EQ(ixfs_last_error(handle.get()), 0);
}

// ---- Records to the returned list

TEST_F(PathRecords, ConversionAppendsBehindWhatIsThere)
{
    populate({"[ds] backups/a.vmdk.desc", "[other] backups/b.vmdk.desc"});
    Texts out{"there before"};
    convertVmdkPathsListToCharArrays(records, out);
    EXPECT_EQ(out, (Texts{"there before", "[ds] " + std::string(view_folder) + "/a.vmdk",
                          "[other] " + std::string(view_folder) + "/b.vmdk"}));
}

TEST_F(PathRecords, ConversionOfNoRecordsAppendsNothing)
{
    Texts out{"there before"};
    convertVmdkPathsListToCharArrays({}, out);
    EXPECT_EQ(out, (Texts{"there before"}));
}

TEST_F(PathRecords, ConversionMakesRoomForAsManyAsThereAreRecords)
{
    records.resize(5);
    Texts out;
    convertVmdkPathsListToCharArrays(records, out);
    EXPECT_EQ(out.capacity(), 5U) << "and not what grows one by one";
}

TEST_F(PathRecords, BytesThatAreNoUtf8GoOutAsTheyCameIn)
{
    populate({"[gr\xfcn] backups/\xc4\xe3.vmdk.desc"});
    Texts out;
    convertVmdkPathsListToCharArrays(records, out);
    EXPECT_EQ(out, (Texts{"[gr\xfcn] " + std::string(view_folder) + "/\xc4\xe3.vmdk"}));
}

} // namespace
