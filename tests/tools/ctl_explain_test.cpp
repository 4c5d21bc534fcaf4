// ixfsctl explain, run as operators run it.
#include "program.h"
#include "temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace
{

ProgramResult run_explain(const std::vector<std::string>& arguments, const std::string& input = "")
{
    std::vector<std::string> command{IXFSCTL_PROGRAM, "explain"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Streams streams;
    streams.input = input;
    return run_program(command, streams);
}

// What the program tells, with wrapped lines joined.
std::string explanation_of(const std::vector<std::string>& arguments, const std::string& input = "")
{
    const ProgramResult result = run_explain(arguments, input);
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return std::regex_replace(result.output, std::regex("\n {12}"), " ");
}

void expect_unknown(const std::vector<std::string>& arguments, const std::string& input = "")
{
    const ProgramResult result = run_explain(arguments, input);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors, StartsWith("ixfsctl: "));
}

// ---- Statuses -----------------------------------------------------------------------------------

TEST(CtlExplain, StatusIsKnownByNumberNameAndText)
{
    const std::string by_number = explanation_of({"29"});
    EXPECT_THAT(by_number, StartsWith("status:     29 EC_HELPER_FAILED: mount helper failed\n"));
    EXPECT_THAT(by_number, HasSubstr("from:       mount, unmount: the helper reported a failure."));
    EXPECT_THAT(by_number, HasSubstr("what to do: read the helper's answers"));
    EXPECT_EQ(explanation_of({"EC_HELPER_FAILED"}), by_number);
    EXPECT_EQ(explanation_of({"mount", "helper", "failed"}), by_number);
    EXPECT_EQ(
        explanation_of({"ixfs-prepare: preparation failed with status 29: mount helper failed"}),
        by_number);
}

TEST(CtlExplain, EachStatusOfTheDocumentIsKnown)
{
    std::ifstream document(IXFS_DOCUMENTS "/statuses.md");
    int known = 0;
    for (std::string line; std::getline(document, line);) {
        std::smatch parts;
        if (!std::regex_search(line, parts, std::regex(R"(^\| (\d+) \| `(EC_\w+)` \|)")))
            continue;
        EXPECT_THAT(explanation_of({parts[1]}),
                    StartsWith("status:     " + parts.str(1) + " " + parts.str(2) + ": "));
        ++known;
    }
    EXPECT_GE(known, 17);
}

TEST(CtlExplain, NumberThatIsNoStatusIsUnknown)
{
    expect_unknown({"2"});
    expect_unknown({"99999999999"});
}

// ---- One line -----------------------------------------------------------------------------------

TEST(CtlExplain, LineIsShownWithNamesForItsNumbers)
{
    EXPECT_EQ(explanation_of({"ERR - ACE_OS::stat(/x/a b/backups) failed, error = 2"}),
              "line:       ERR - ACE_OS::stat(/x/a b/backups) failed, error = 2 (ENOENT: No such "
              "file or directory)\n"
              "from:       _ixfs_mount_validate(), severity 0 (error); Watching a mount\n"
              "what to do: 2: the mount is gone or holds no backups; 62: the server is slow; else "
              "the mount is dead. During a mount: it fails and is undone. Later: unmount, and "
              "mount again\n");
}

TEST(CtlExplain, ErrnoNumbersAreFoundHoweverTheLineTellsThem)
{
    for (const char* line :
         {"ERR - umount failed for /x, errno = 16", "ERR - can't open old /x, err 16",
          "ERR - Could not create link /a to /b - 16", "ERR - error writing new file - 16",
          "ERR - ACE_OS::mkdir(): Could not create Parent (/x), error: 16"})
        EXPECT_THAT(explanation_of({line}),
                    HasSubstr(line + std::string(" (EBUSY: Device or resource busy)\n")));
}

TEST(CtlExplain, NumbersThatAreStatusesGetTheirNames)
{
    EXPECT_THAT(explanation_of({"ERR - Could not create link for /x, error 11"}),
                HasSubstr("error 11 (EC_SYSTEM_ERROR: system call failed)\n"));
    EXPECT_THAT(explanation_of({"ERR - Failed copying Disk Descriptor (14): from /a to /b"}),
                HasSubstr("(14 (EC_FILE_NOT_COPIED: file could not be copied)): from /a to /b\n"));
}

TEST(CtlExplain, OtherNumbersStayAsTheyAre)
{
    for (const char* line : {"INF - Read file size: 5", "ERR - Invalid Schedule Type: 2.",
                             "INF - makeLink? 1", "INF - stopping validate thread, errno = 0",
                             "ERR - ACE_Thread::spawn() failed, error = -1"})
        EXPECT_THAT(explanation_of({line}), HasSubstr("line:       " + std::string(line) + "\n"));
}

TEST(CtlExplain, LineWithoutAdviceIsNormal)
{
    EXPECT_THAT(explanation_of({"INF - got the mount mutex"}),
                HasSubstr("what to do: normal; nothing to do\n"));
}

TEST(CtlExplain, LineIsFoundWhateverALogPutsBeforeIt)
{
    const std::string line = "ERR - umount failed for /x, errno = 16";
    const std::string plain = explanation_of({line});
    for (const std::string before :
         {"ERR _ixfs_umount(): ", "2026-11-22T10:00:00.123+01:00 ERR _ixfs_umount(): ",
          "2026-11-22T10:00:00Z ERR [media1 vm_1700000000] _ixfs_umount(): ",
          "Nov 22 10:00:00 host backup[4711]: ERR _ixfs_umount(): ", "error   _ixfs_umount() "})
        EXPECT_EQ(explanation_of({before + line}), plain);
    const std::string json = R"~({"time":"now","severity":"ERR","tag":"_ixfs_umount()",)~";
    EXPECT_EQ(explanation_of({json + "\"message\":\"" + line + "\"}"}), plain);
    EXPECT_EQ(explanation_of({"{\"MESSAGE\":\"ERR _ixfs_umount(): " + line + "\"}"}), plain);
    EXPECT_EQ(explanation_of({"  " + line + " \n"}), plain);
}

TEST(CtlExplain, LineOfTheJobLogIsFound)
{
    EXPECT_THAT(explanation_of({"JBD - INF - waiting for mount mutex..."}),
                HasSubstr("; Mounting; also in the job log\n"));
}

TEST(CtlExplain, TagTellsLinesWithTheSameTextApart)
{
    const std::string of_mount = explanation_of({"ixfs_mount(): ERR - command failed"});
    EXPECT_THAT(of_mount, HasSubstr("What it mounted stays"));
    EXPECT_THAT(of_mount, Not(HasSubstr("\nor: ")));
    const std::string of_unmount = explanation_of({"ixfs_unmount(): ERR - command failed"});
    EXPECT_THAT(of_unmount, HasSubstr("The unmount goes on locally"));
    EXPECT_THAT(of_unmount, Not(HasSubstr("\nor: ")));
    const std::string of_either = explanation_of({"ERR - command failed"});
    EXPECT_THAT(of_either, HasSubstr("What it mounted stays"));
    EXPECT_THAT(of_either, HasSubstr("or:         ERR - command failed of ixfs_unmount(): "));
}

TEST(CtlExplain, PartOfALineIsFound)
{
    for (const char* part : {"nothing is mounted", "thing is mounted", "ERR - nothing is mou",
                             "ERR ixfs_mount(): ERR - nothing is m", "ixfs_mount(): nothing is"})
        EXPECT_THAT(explanation_of({part}), StartsWith("line:       ERR - nothing is mounted\n"))
            << part;
}

TEST(CtlExplain, PartOfALineKeepsTheValuesThatItHolds)
{
    EXPECT_THAT(explanation_of({"umount failed for /x, errno = 16"}),
                StartsWith("line:       ERR - umount failed for /x, errno = 16 (EBUSY: "));
    EXPECT_THAT(explanation_of({"ERR - umount failed for /x"}),
                StartsWith("line:       ERR - umount failed for /x, errno = ...\n"));
    EXPECT_THAT(explanation_of({"to create mutex: Global\\A"}),
                StartsWith("line:       INF - Trying to create mutex: Global\\A\n"));
}

TEST(CtlExplain, OtherLinesOfAPartAreNamed)
{
    const std::string text = explanation_of({"invalid parameter, missing"});
    EXPECT_THAT(text, HasSubstr("ERR - invalid parameter, missing server name"));
    EXPECT_THAT(text, HasSubstr("ERR - invalid parameter, missing mount point"));
    EXPECT_THAT(text, HasSubstr("ERR - invalid parameter, missing credentials"));
}

TEST(CtlExplain, LongTextIsWrappedAtTheWidthOfATerminal)
{
    std::istringstream lines(
        run_explain({"ixfs_unmount(): ERR - still mounted, not deleted: /x"}).output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_LE(line.size(), 80U) << line;
    EXPECT_GT(count, 5);
}

TEST(CtlExplain, CredentialAndControlCharactersAreNotShown)
{
    const std::string text =
        explanation_of({"INF - running command - /ixfs mount -cred s3cret /x\x1b]0;"});
    EXPECT_THAT(text, HasSubstr("-cred *** /x\\x1b]0;\n"));
    EXPECT_THAT(text, Not(HasSubstr("s3cret")));
}

TEST(CtlExplain, CredentialIsNotShownWhateverBlankIsBeforeIt)
{
    for (const char* const blank : {" ", "  ", "\t", "\n  "})
        EXPECT_THAT(run_explain({"ixfs -cred" + std::string(blank) + "s3cret /x"}).errors,
                    AllOf(HasSubstr("***"), Not(HasSubstr("s3cret"))));
}

TEST(CtlExplain, PastedLineMayBeQuotedColouredOrWrapped)
{
    const std::string line = "ERR - umount failed for /x, errno = 16";
    const std::string plain = explanation_of({line});
    EXPECT_THAT(plain, HasSubstr("EBUSY"));
    for (const char* const quote : {"\"", "'", "`"})
        EXPECT_EQ(explanation_of({quote + line + quote}), plain);
    EXPECT_EQ(explanation_of({"\x1b[1;31m" + line + "\x1b[0m"}), plain);
    EXPECT_EQ(explanation_of({"ERR - umount failed\n    for /x, errno = 16\n"}), plain);
    EXPECT_EQ(explanation_of({R"({"level": "error", "msg": ")" + line + "\"}"}), plain);
    EXPECT_EQ(explanation_of({"-"}, line + std::string(1, '\0') + "\r\n"), plain);
}

TEST(CtlExplain, TwoPastedLinesAreBothExplained)
{
    const std::string first = "ERR - umount failed for /x, errno = 16";
    const std::string second = "ERR - unable to obtain mount mutex";
    EXPECT_THAT(explanation_of({first + "\n" + second}),
                AllOf(HasSubstr("EBUSY"), HasSubstr("line:       " + second)));
}

TEST(CtlExplain, StatusIsKnownHoweverItIsWritten)
{
    const std::string plain = explanation_of({"29"});
    for (const char* const text : {"ec_helper_failed", "Status 29", "status: 29", "\"29\"",
                                   R"({"status": 29, "text": "x"})"})
        EXPECT_EQ(explanation_of({text}), plain) << text;
}

TEST(CtlExplain, ForeignLineIsUnknown)
{
    for (const char* line : {"hello world", "err", "ERR - something else", "", "{\"a\": 1}", "{"})
        expect_unknown({line});
}

TEST(CtlExplain, NoArgumentIsBadUsage)
{
    EXPECT_EQ(run_explain({}).exit_status, 2);
}

// Each text, with something for each value.
TEST(CtlExplain, EachLineOfTheDocumentIsFoundByItsTagAndText)
{
    std::ifstream document(IXFS_DOCUMENTS "/log-lines.md");
    const std::regex row(R"(^\| `([^`]+)`[^|]* \| ([012]) \| `([^`]+)` \|)");
    std::string all;
    std::vector<std::string> texts;
    for (std::string line; std::getline(document, line);) {
        std::smatch parts;
        if (!std::regex_search(line, parts, row))
            continue;
        std::string text = std::regex_replace(parts.str(3), std::regex("%(d|ld)"), "7");
        text = std::regex_replace(text, std::regex("%s"), "/a path");
        const std::string first = explanation_of({parts.str(1) + ": " + text}).substr(12);
        const std::string shown = std::regex_replace(first.substr(0, first.find('\n')),
                                                     std::regex(R"(7 \([A-Z0-9]+: [^)]*\))"), "7");
        EXPECT_EQ(shown, text.substr(text.find_first_not_of(' ')));
        EXPECT_THAT(first, HasSubstr("severity " + parts.str(2) + " ("));
        texts.push_back(text);
    }
    EXPECT_GE(texts.size(), 100U);
}

// ---- A whole log --------------------------------------------------------------------------------

TEST(CtlExplain, OnlyLinesOfALogThatTellOfAProblemAreExplained)
{
    const std::string text =
        explanation_of({"-"}, "INF ixfs_mount(): INF - waiting for mount mutex...\n"
                              "another program's line\n"
                              "ERR ixfs_unmount(): INF - Event terminated...\n"
                              "ERR ixfs_mount(): ERR - nothing is mounted\n"
                              "WRN _ixfs_view_lock(): WRN - Acquire failed for "
                              "ACE_Process_Mutex, error = 11\n"
                              "INF ixfs_unmount(): INF - got the mount mutex\n");
    EXPECT_THAT(text, StartsWith("line:       ERR - nothing is mounted\n"));
    EXPECT_THAT(text, HasSubstr("\n\nline:       WRN - Acquire failed for ACE_Process_Mutex, error "
                                "= 11 (EAGAIN: "));
    EXPECT_THAT(text, Not(HasSubstr("INF - ")));
}

TEST(CtlExplain, FailureThatTheLibraryLogsAsInformationIsExplained)
{
    EXPECT_THAT(
        explanation_of({"-"}, "INF ixfs_mount(): INF - Create mount dir /x failed, error = 13.\n"),
        StartsWith("line:       INF - Create mount dir /x failed, error = 13 (EACCES: "));
}

TEST(CtlExplain, RepeatedLineOfALogIsExplainedOnce)
{
    const std::string text = explanation_of({"-"}, "ERR - umount failed for /a, errno = 16\n"
                                                   "ERR - nothing is mounted\n"
                                                   "ERR - umount failed for /b, errno = 22\n");
    EXPECT_THAT(text, StartsWith("line:       ERR - umount failed for /a, errno = 16 (EBUSY: "));
    EXPECT_THAT(text, HasSubstr("\nseen:       2 times"));
    EXPECT_THAT(text, Not(HasSubstr("/b")));
}

TEST(CtlExplain, LogThatEndsWaitingIsExplained)
{
    const std::string waiting = "INF ixfs_mount(): INF - waiting for mount mutex...\n";
    const std::string text = explanation_of({"-"}, waiting);
    EXPECT_THAT(text,
                StartsWith("The log ends here:\nline:       INF - waiting for mount mutex...\n"));
    EXPECT_EQ(explanation_of({"-"}, waiting + "INF ixfs_mount(): INF - mount point - /x\n"),
              "2 lines of the library; nothing to do\n");
}

TEST(CtlExplain, LineOfALogThatWasCutIsExplained)
{
    const std::string text =
        explanation_of({"-"}, "ERR _ixfs_umount(): ERR - umount failed for /x");
    EXPECT_THAT(text, StartsWith("line:       ERR - umount failed for /x, errno = ...\n"));
}

TEST(CtlExplain, LineThatIsLongerThanAnyOfTheLibraryIsUnknown)
{
    const std::string path(1000000, ':');
    expect_unknown({"-"}, "ERR - umount failed for " + path + ", errno = 16\n");
}

TEST(CtlExplain, StatusThatALogTellsIsExplainedLast)
{
    const std::string text = explanation_of(
        {"-"}, "ixfs-prepare: preparation failed with status 11: system call failed\n"
               "ERR ixfs_mount(): ERR - nothing is mounted\n");
    EXPECT_THAT(text, StartsWith("line:       ERR - nothing is mounted\n"));
    EXPECT_THAT(text, HasSubstr("\n\nstatus:     11 EC_SYSTEM_ERROR: "));
}

TEST(CtlExplain, JsonLogIsRead)
{
    const std::string line = R"~({"tag":"ixfs_unmount()","message":"ERR - command failed"})~";
    EXPECT_THAT(explanation_of({"-"}, line + "\n"), HasSubstr("The unmount goes on locally"));
}

TEST(CtlExplain, LogOfAnotherProgramIsUnknown)
{
    expect_unknown({"-"}, "");
    expect_unknown({"-"}, "nothing is mounted here\nby us\n");
}

// ---- The documents ------------------------------------------------------------------------------

class MakeCatalogue : public testing::Test
{
protected:
    static constexpr char log_head[] =
        "| tag | sev. | text | when, and what to do |\n|---|---|---|---|\n";
    static constexpr char log_row[] = "| `a()` | 0 | `ERR - a` | |\n";
    static constexpr char status_head[] =
        "| number | name | from | text | what to do |\n|---|---|---|---|---|\n";
    static constexpr char status_row[] = "| 0 | `EC_OK` | a | b | c |\n";

    ProgramResult make(const std::string& log_lines, const std::string& statuses)
    {
        folder.write("log.md", log_lines);
        folder.write("statuses.md", statuses);
        return run_program(
            {IXFS_MAKE_CATALOGUE, folder / "log.md", folder / "statuses.md", folder / "rows.cpp"});
    }

    TempDir folder;
};

TEST_F(MakeCatalogue, ReadsTables)
{
    const ProgramResult result =
        make(std::string("text\n") + log_head + log_row, std::string(status_head) + status_row);
    EXPECT_EQ(result.exit_status, 0) << result.errors;
    EXPECT_THAT(folder.read("rows.cpp"), HasSubstr("ERR - a"));
}

TEST_F(MakeCatalogue, EndsTheBuildForARowOfAnotherForm)
{
    for (const char* row : {"| `a()` | 3 | `ERR - a` | |\n", "| a() | 0 | `ERR - a` | |\n",
                            "| `a()` | 0 | `ERR - a` |\n", "| `a()` | 0 | `ERR - a` | b | c |\n"}) {
        const ProgramResult result =
            make(std::string(log_head) + log_row + row, std::string(status_head) + status_row);
        EXPECT_EQ(result.exit_status, 1) << row;
        EXPECT_THAT(result.errors, HasSubstr("log.md:4: not a row of this table"));
    }
    const ProgramResult result = make(std::string(log_head) + log_row,
                                      std::string(status_head) + "| 0 | `EC_OK` | a | b |\n");
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, HasSubstr("statuses.md:3: not a row of this table"));
}

TEST_F(MakeCatalogue, EndsTheBuildForADocumentWithoutATable)
{
    EXPECT_EQ(make("text\n", std::string(status_head) + status_row).exit_status, 1);
    EXPECT_EQ(make("", std::string(status_head) + status_row).exit_status, 1);
}

} // namespace
