#include "helper_command.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace
{

// Quoted for the shell.
#define IXFS_HELPER R"("/usr/varnis/stowline/bin/ixfs")"

constexpr int server_too_busy = EC_SERVER_BUSY;
constexpr timespec retry_pause = {1, 0};

struct PipeCloser {
    void operator()(FILE* pipe) const { pclose(pipe); }
};
using Pipe = std::unique_ptr<FILE, PipeCloser>;

// Reads a line, or a buffer full of a longer one. A signal that interrupts the reading ends
// nothing.
bool read_line(FILE* pipe, char (&line)[text_size])
{
    while (std::fgets(line, sizeof(line), pipe) == nullptr) {
        if (std::ferror(pipe) == 0 || errno != EINTR)
            return false;
        std::clearerr(pipe);
    }
    const std::size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[length - 1] = '\0';
    return true;
}

// A clock that can't be read ends a wait, too.
bool is_before(std::time_t end)
{
    const std::time_t now = std::time(nullptr);
    return now != -1 && now < end;
}

// One run of the helper, to the end of its output or of the conversation's interest. Returns
// whether it could be started.
bool run_pass(const HelperCommand& command, HelperConversation& conversation)
{
    const Pipe pipe(popen(command.line(), "re"));
    if (pipe == nullptr)
        return false;
    char line[text_size];
    while (read_line(pipe.get(), line)) {
        if (*line == '\0')
            continue;
        if (conversation.response(line) == HelperConversation::Reading::stops)
            break;
    }
    return true;
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
                                    record.server, record.port, timeout_option, record.mount_cred,
                                    mount_directory));
    return command;
}

HelperCommand HelperCommand::unmount(const _ixfs_mount_t& record)
{
    HelperCommand command;
    command.formatted(std::snprintf(command.line_, sizeof(command.line_),
                                    IXFS_HELPER " umount -f -server %s -port %d -cred %s %s",
                                    record.server, record.port, record.unmount_cred,
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

bool HelperConversation::take_exit_status(const char* line)
{
    constexpr char key[] = "EXIT_STATUS=";
    if (std::strncmp(line, key, std::strlen(key)) != 0)
        return false;
    exit_status = static_cast<int>(std::strtol(std::strrchr(line, '=') + 1, nullptr, 10));
    return true;
}

ec_status run_helper(_ixfs_control_t* handle, const char* tag, const HelperCommand& command,
                     int timeout, HelperConversation& conversation)
{
    if (!command.built()) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - unable to build command\n");
        return EC_SYSTEM_ERROR;
    }
    const std::time_t start = std::time(nullptr);
    for (;;) {
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - running command - %s\n", command.display());
        conversation.pass_begins();
        if (!run_pass(command, conversation)) {
            _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - unable to run command - %s\n",
                      command.display());
            return EC_SYSTEM_ERROR;
        }
        if (conversation.pass_ended() == HelperConversation::AfterPass::loop_is_left ||
            conversation.exit_status == 0)
            return EC_OK;
        if (conversation.exit_status != server_too_busy) {
            _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - command failed\n");
            return EC_HELPER_FAILED;
        }
        if (!is_before(start + timeout)) {
            _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - timeout period exceeded\n");
            return EC_OK;
        }
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - too busy to connect, retrying command\n");
        nanosleep(&retry_pause, nullptr);
    }
}
