#include "helper_command.h"

#include "mount_record.h"
#include "this_process.h"

#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace
{

// Quoted for the shell.
#define IXFS_HELPER R"("/usr/varnis/stowline/bin/ixfs")"

constexpr std::time_t no_time = -1;

// Whole seconds of the clock that nobody can set; no_time if it can't be read.
std::time_t seconds_now()
{
    timespec now{};
    return clock_gettime(CLOCK_MONOTONIC, &now) == 0 ? now.tv_sec : no_time;
}

// A clock that can't be read ends a wait at once.
std::time_t end_of_wait(int seconds)
{
    const std::time_t now = seconds_now();
    return now != no_time ? now + seconds : no_time;
}

bool is_before(std::time_t end)
{
    const std::time_t now = seconds_now();
    return now != no_time && now < end;
}

// Returns the next character, or EOF. A signal that interrupts the reading ends nothing.
int next_character(FILE* stream)
{
    int character = std::getc(stream);
    while (character == EOF && std::ferror(stream) != 0 && errno == EINTR) {
        std::clearerr(stream);
        character = std::getc(stream);
    }
    return character;
}

// A child forked meanwhile would have a copy of the helper's end of the pipe, and reading the pipe
// to its end would wait for the child. It would also have a copy of popen's own lock, with which it
// could never run a helper.
FILE* open_pipe(const char* command)
{
    const std::lock_guard<std::recursive_mutex> no_fork(fork_mutex());
    return popen(command, "re");
}

} // namespace

HelperCommand HelperCommand::mount(const _ixfs_mount_t& record, const char* mount_directory)
{
    char timeout_option[20] = "";
    if (record.timeout != 0)
        std::snprintf(timeout_option, sizeof(timeout_option), "-timeout %d", record.timeout);
    HelperCommand command;
    // The two blanks before -cred surround a further option, which is never given.
    command.formatted(std::snprintf(command.line_, sizeof(command.line_),
                                    IXFS_HELPER " mount -server %s -port %d %s  -cred %s %s",
                                    record.server.get(), record.port, timeout_option,
                                    record.mount_cred.get(), mount_directory));
    return command;
}

HelperCommand HelperCommand::unmount(const _ixfs_mount_t& record)
{
    HelperCommand command;
    command.formatted(std::snprintf(command.line_, sizeof(command.line_),
                                    IXFS_HELPER " umount -f -server %s -port %d -cred %s %s",
                                    record.server.get(), record.port, record.unmount_cred.get(),
                                    record.mount_point));
    return command;
}

void HelperCommand::formatted(int length)
{
    if (length < 0)
        line_[0] = '\0';
    strlcpy(display_, line_, sizeof(display_));
}

void HelperCommand::cut_display(const char* credential)
{
    const auto position = static_cast<std::ptrdiff_t>(std::strlen(display_)) + 8 -
                          static_cast<std::ptrdiff_t>(std::strlen(credential));
    if (position == 0) {
        display_[0] = '\0';
        return;
    }
    if (position > 0 && position < static_cast<std::ptrdiff_t>(sizeof(display_)))
        display_[position] = '\0';
    strlcat(display_, "...", sizeof(display_));
}

bool take_exit_status(const char* line, int& exit_status)
{
    constexpr char key[] = "EXIT_STATUS=";
    if (std::strncmp(line, key, std::strlen(key)) != 0)
        return false;
    exit_status = static_cast<int>(std::strtol(std::strrchr(line, '=') + 1, nullptr, 10));
    return true;
}

const char* HelperOutput::next_line()
{
    while (read_line()) {
        if (line_[0] != '\0')
            return line_;
    }
    return nullptr;
}

// As fgets and the removal of one newline, but keeps what was read before a signal. Returns false
// when there is nothing more to read.
bool HelperOutput::read_line()
{
    std::size_t length = 0;
    while (length < sizeof(line_) - 1) {
        const int character = next_character(pipe_.get());
        if (character == EOF && length == 0)
            return false;
        if (character == EOF || character == '\n')
            break;
        line_[length++] = static_cast<char>(character);
    }
    line_[length] = '\0';
    return true;
}

HelperRun::HelperRun(const Log& log, const HelperCommand& command, int timeout)
    : log_(log), command_(command), end_(end_of_wait(timeout))
{
}

std::optional<HelperOutput> HelperRun::start()
{
    status_ = EC_SYSTEM_ERROR;
    if (!command_.built()) {
        log_.error("ERR - unable to build command\n");
        return std::nullopt;
    }
    log_.info("INF - running command - %s\n", command_.display());
    FILE* const pipe = open_pipe(command_.line());
    if (pipe == nullptr) {
        log_.error("ERR - unable to run command - %s\n", command_.display());
        return std::nullopt;
    }
    status_ = EC_OK;
    return HelperOutput(pipe);
}

bool HelperRun::again(int exit_status)
{
    constexpr timespec pause = {1, 0};
    if (exit_status == EC_OK)
        return false;
    if (exit_status != EC_SERVER_BUSY) {
        log_.error("ERR - command failed\n");
        status_ = EC_HELPER_FAILED;
        return false;
    }
    if (!is_before(end_)) {
        log_.error("ERR - timeout period exceeded\n");
        return false;
    }
    log_.info("INF - too busy to connect, retrying command\n");
    nanosleep(&pause, nullptr);
    return true;
}
