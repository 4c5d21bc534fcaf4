// The question of ixfs-prepare before it removes a view.
#include "confirm.h"
#include "prepare_test.h"
#include "usage_error.h"

#include <array>
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::HasSubstr;

namespace
{

constexpr char question[] = "Remove it?";

// Asks on a terminal where `typed` is the answer. Its standard streams are not that terminal.
int answer_to(const std::string& typed)
{
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); // the terminal stays in use
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            close(stream);
        _exit(confirm(question) ? 1 : 0);
    }
    std::string shown;
    std::array<char, 256> bytes{};
    while (shown.find("[y/N]") == std::string::npos) {
        const ssize_t count = read(terminal, bytes.data(), bytes.size());
        if (count <= 0)
            break;
        shown.append(bytes.data(), static_cast<std::size_t>(count));
    }
    EXPECT_THAT(shown, HasSubstr(question));
    EXPECT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    close(terminal);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(PrepareConfirm, YesAgrees)
{
    for (const char* typed : {"y\n", "Y\n", "yes\n", "YES\n"})
        EXPECT_EQ(answer_to(typed), 1) << typed;
}

TEST(PrepareConfirm, AllElseDoesNotAgree)
{
    for (const char* typed : {"\n", "n\n", "yesterday\n", "yy\n", "\x04"})
        EXPECT_EQ(answer_to(typed), 0) << typed;
}

class PrepareRemoval : public PrepareTest
{
protected:
    PrepareRemoval()
    {
        options.erase("disk");
        flags = {"--remove-view"};
    }
};

TEST_F(PrepareRemoval, IsNotDoneUnaskedWhereThereIsNoTerminal)
{
    // A session of its own has no terminal.
    std::vector<std::string> apart{"/usr/bin/setsid", "--wait"};
    const std::vector<std::string> program = command();
    apart.insert(apart.end(), program.begin(), program.end());
    const ProgramResult result = run_program(apart);
    EXPECT_EQ(result.exit_status, bad_usage);
    EXPECT_THAT(result.errors, HasSubstr("Give --yes to agree."));
    EXPECT_THAT(helper.runs(), testing::IsEmpty());
}

TEST_F(PrepareRemoval, TakesNoDisks)
{
    for (const char* option : {"--disk=a", "--disks-from=a", "--new-disk-uuids"}) {
        flags = {"--remove-view", option};
        expect_refusal(" excludes --remove-view");
    }
}

TEST_F(PrepareRemoval, IsForOneImage)
{
    flags = {"--remove-view", "--from=list"};
    expect_refusal("--from");
}

TEST_F(PrepareRemoval, AloneTakesYes)
{
    options["disk"] = disk;
    flags = {"--yes"};
    expect_refusal("--yes requires --remove-view");
}

TEST_F(PrepareRemoval, CanBeADryRun)
{
    flags = {"--remove-view", "--dry-run"};
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.output, HasSubstr("backups/client/allusers/full/7/_vmir\n"));
    EXPECT_THAT(helper.runs(), testing::IsEmpty());
}

} // namespace
