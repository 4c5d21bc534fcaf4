// Running the product's mount helper: its command lines, and the conversation with it.
#ifndef IXFS_HELPER_COMMAND_H
#define IXFS_HELPER_COMMAND_H

#include "bounded_text.h"
#include "mount_record.h"

// One command line as the shell gets it, and as the log shows it.
class HelperCommand
{
public:
    static HelperCommand mount(const _ixfs_mount_t& record, const char* mount_directory);
    static HelperCommand unmount(const _ixfs_mount_t& record);

    // Cuts the displayed line at its length plus eight less the credential's, and appends "...".
    // This does not hide the credential: with one of common length only the path after it is cut.
    void cut_display(const char* credential);

    bool built() const { return line_[0] != '\0'; }
    const char* line() const { return line_; }
    const char* display() const { return display_; }

private:
    HelperCommand() = default;

    void formatted(int length); // the formatter's result, negative where it failed

    char line_[text_size] = "";
    char display_[text_size] = "";
};

// What a caller does with the helper's answers. The exit status is the conversation's to keep,
// since its first value and its resetting differ.
class HelperConversation
{
public:
    enum class Reading { goes_on, stops };
    enum class AfterPass { exit_status_decides, loop_is_left };

    HelperConversation(const HelperConversation&) = delete;
    HelperConversation& operator=(const HelperConversation&) = delete;
    virtual ~HelperConversation() = default;

    virtual void pass_begins() = 0;
    virtual Reading response(const char* line) = 0;
    virtual AfterPass pass_ended() = 0;

    int exit_status = 0;

protected:
    HelperConversation() = default;

    // Takes the exit status from a line that begins with its key, and tells whether it does.
    bool take_exit_status(const char* line);
};

// Runs the command, again after a second while the server is too busy and `timeout` seconds have
// not passed. Returns EC_OK when the loop was left: the helper succeeded, the conversation had
// enough, or time ran out. EC_SYSTEM_ERROR: not built or not started. EC_HELPER_FAILED: any other
// exit status. Each failure was logged under `tag`; recording it is the caller's.
ec_status run_helper(_ixfs_control_t* handle, const char* tag, const HelperCommand& command,
                     int timeout, HelperConversation& conversation);

#endif
