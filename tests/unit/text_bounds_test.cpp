// Long texts that are not opened: only the log cuts them.
#include "bounds.h"
#include "handle_test.h"
#include "string_of.h"

#include "ixfs_vmir.h"

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace
{

class TextBounds : public HandleTest, public testing::WithParamInterface<unsigned int>
{
protected:
    const std::string text = bounds::text(GetParam());
    LmfString out;
};

// ---- The log ------------------------------------------------------------------------------------

TEST_P(TextBounds, LogCutsArguments)
{
    _ixfs_log(handle.get(), "tag", IXFS_LOG_INF, "INF - %s\n", text.c_str());
    EXPECT_EQ(log.take(), bounds::as_logged({{IXFS_LOG_INF, "tag", "INF - " + text + "\n"}}));
}

TEST_P(TextBounds, ServerLogCutsArgumentsInBothLogs)
{
    _ixfs_server_log(handle.get(), "tag", IXFS_LOG_INF, "INF - %s\n", text.c_str());
    const Lines expected = bounds::as_logged({{IXFS_LOG_INF, "tag", "INF - " + text + "\n"}});
    EXPECT_EQ(log.take(), expected);
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - " + expected[0].message}));
}

// Formats of a length that only the run tells are what this is about.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
TEST_P(TextBounds, LogCutsFormats)
{
    _ixfs_log(handle.get(), "tag", IXFS_LOG_INF, text.c_str());
    _ixfs_server_log(handle.get(), "tag", IXFS_LOG_INF, text.c_str());
    const Line expected{IXFS_LOG_INF, "tag", text};
    EXPECT_EQ(log.take(), bounds::as_logged({expected, expected}));
}
#pragma GCC diagnostic pop

TEST_P(TextBounds, LogHandsTagsOnWhole)
{
    _ixfs_log(handle.get(), text.c_str(), IXFS_LOG_INF, "message");
    _ixfs_server_log(handle.get(), text.c_str(), IXFS_LOG_INF, "message");
    const Line expected{IXFS_LOG_INF, text, "message"};
    EXPECT_EQ(log.take(), (Lines{expected, expected}));
}

// ---- The framework ------------------------------------------------------------------------------

TEST_P(TextBounds, StringsAreWhole)
{
    const LmfString to_nul(text.c_str(), LmfString::to_nul, nullptr, 0);
    EXPECT_EQ(to_nul.utf8_str(), text);
    EXPECT_EQ(string_of(text).text(), text);
    out = text.c_str();
    EXPECT_EQ(out.text(), text);
    EXPECT_TRUE(string_of(text.substr(1)) < string_of("c") && string_of("a") < string_of(text));
}

TEST_P(TextBounds, PathnamesAreWhole)
{
    LmfPathname path;
    path.makeFilename(text.c_str(), false);
    path.makeFilename(text.c_str(), true);
    EXPECT_EQ(path.display_str(), text + "/" + text);
    EXPECT_EQ(path.last_segment(), text);
}

TEST_P(TextBounds, CodePagesOfOtherNamesAreTheDefault)
{
    EXPECT_EQ(getCodePageMgr().getCodePageId(text.c_str()), getCodePageMgr().getCodePageId(""));
}

TEST_P(TextBounds, ExceptionsAreWhole)
{
    const std::string message = text + ": error code: 20, invalid parameter";
    EcStatusException exception(EC_INVALID_PARAMETER, text.c_str());
    EXPECT_EQ(exception.what(), message);
    EXPECT_EQ(EcStatusException(EC_INVALID_PARAMETER, text).message, message);
    exception.setMsg(text);
    EXPECT_EQ(exception.what(), message);
}

// ---- Backup ids and the image's layout ----------------------------------------------------------

TEST_P(TextBounds, ClientOfABackupIdIsWhole)
{
    std::string client;
    long time = 0;
    EXPECT_EQ(makeClientAndBackupTime(handle.get(), text + "_5", client, time), EC_OK);
    EXPECT_EQ(client, text);
    EXPECT_EQ(time, 5);
    EXPECT_EQ(
        log.take(),
        bounds::as_logged({{IXFS_LOG_INF, "makeClientAndBackupTime",
                            "INF - Finding client and backup time from bid: " + text + "_5\n"}}));
}

TEST_P(TextBounds, TimeOfABackupIdMayHaveAnyLength)
{
    const std::string zeros(GetParam(), '0');
    const std::string ones(GetParam(), '1');
    std::string client;
    long time = 0;
    EXPECT_EQ(makeClientAndBackupTime(handle.get(), "host_" + zeros + "5" + text, client, time),
              EC_OK);
    EXPECT_EQ(time, 5);
    EXPECT_EQ(makeClientAndBackupTime(handle.get(), "host_" + ones, client, time),
              EC_INVALID_PARAMETER);
}

TEST_P(TextBounds, ClientInPathsIsWhole)
{
    const std::string image = "backups/" + text + "/allusers/full/5";
    LmfPathname path;
    buildImagePath(handle.get(), text, 5, 0, path);
    EXPECT_EQ(path.text(), image);
    buildViewPath(handle.get(), text, 5, 0, out);
    EXPECT_EQ(out.text(), image + "/_vmir");
}

// ---- Disk paths ---------------------------------------------------------------------------------

TEST_P(TextBounds, EachPartOfADatastorePathIsWhole)
{
    const LmfString entry = string_of("[" + text + "] backups/" + text + "/" + text + ".vmdk.desc");
    buildDatastore(entry, out);
    EXPECT_EQ(out.text(), "[" + text + "]");
    buildOriginalDescPath(entry, out);
    EXPECT_EQ(out.text(), "backups/" + text + "/" + text + ".vmdk.desc");
    buildOriginalVmdkPath(entry, out);
    EXPECT_EQ(out.text(), "[" + text + "] backups/" + text + "/" + text + ".vmdk");
    buildBaseName(entry, out);
    EXPECT_EQ(out.text(), text);
}

TEST_P(TextBounds, MalformedDatastorePathsAreRefused)
{
    const LmfString entry = string_of(text);
    EXPECT_THROW(buildDatastore(entry, out), EcStatusException);
    EXPECT_THROW(buildOriginalDescPath(entry, out), EcStatusException);
    EXPECT_THROW(buildOriginalVmdkPath(entry, out), EcStatusException);
    EXPECT_THROW(buildBaseName(entry, out), EcStatusException);
    EXPECT_EQ(out.text(), "");
}

TEST_P(TextBounds, JoinedPathsAreWhole)
{
    const LmfString part = string_of(text);
    buildViewDescPath(part, part, out);
    EXPECT_EQ(out.text(), text + "/" + text + ".vmdk");
    buildViewVmdkPath(part, part, out);
    EXPECT_EQ(out.text(), text + "/" + text + "-flat.vmdk");
    buildDatastoreViewDescPath(part, part, out);
    EXPECT_EQ(out.text(), text + " " + text);
    EXPECT_EQ(convertUnixPathToPlatformPath(part, part).text(), text + "/" + text);
}

TEST_P(TextBounds, ListOfDisksIsWhole)
{
    const std::string entry = "[" + text + "] backups/" + text + "/" + text + ".vmdk.desc";
    std::vector<std::string> entries{entry, entry};
    LmfString view = string_of(text);
    std::vector<VmirPath> records;
    populateVmirPathVector(handle.get(), entries, view, records);
    std::vector<std::string> paths;
    convertVmdkPathsListToCharArrays(records, paths);
    EXPECT_EQ(paths,
              (std::vector<std::string>{"[" + text + "] " + text + "/" + text + ".vmdk",
                                        "[" + text + "] " + text + "/" + text + "(1).vmdk"}));

    std::set<LmfString> used{records[0].baseName};
    populateVmirPath(handle.get(), used, view, records[0]);
    EXPECT_EQ(records[0].baseName.text(), text + "(1)");
}

TEST_P(TextBounds, MalformedEntryOfAListIsLogged)
{
    std::vector<std::string> entries{text};
    LmfString view = string_of(text);
    std::vector<VmirPath> records;
    EXPECT_THROW(populateVmirPathVector(handle.get(), entries, view, records), EcStatusException);
    EXPECT_EQ(records.at(0).datastoreDescPath.text(), text);
    EXPECT_EQ(log.take().size(), 1U) << "the step is named, not the entry";
}

TEST_P(TextBounds, BaseNamesAreToldApartByTheirEnds)
{
    std::set<LmfString> used{string_of(text), string_of(text + "x")};
    LmfString name = string_of(text);
    EXPECT_TRUE(ensureUniquenessOfBasename(used, name));
    EXPECT_EQ(name.text(), text + "(1)");
    name = text + "y";
    EXPECT_FALSE(ensureUniquenessOfBasename(used, name));
}

// ---- The buffer that a caller gives -------------------------------------------------------------

TEST_P(TextBounds, BaseNameOfAViewStaysWithinItsBuffer)
{
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    const std::unique_ptr<char[]> buffer(new char[GetParam()]);
    std::memset(buffer.get(), 'x', GetParam());
    ASSERT_EQ(_ixfs_view_lock(handle.get(), view, 5, buffer.get(), GetParam()), 1);
    const std::size_t length = strnlen(buffer.get(), GetParam());
    ASSERT_LT(length, GetParam());
    EXPECT_EQ(buffer[length - 1], '0');
    EXPECT_EQ(std::string(buffer.get() + length + 1, GetParam() - length - 1),
              std::string(GetParam() - length - 1, 'x'));
}

INSTANTIATE_TEST_SUITE_P(, TextBounds, bounds::lengths, bounds::length_name);

} // namespace
