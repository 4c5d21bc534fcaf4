#include "work.h"

#include "begins_with.h"
#include "mount_watch.h"
#include "outlet.h"
#include "records.h"
#include "remove_view.h"

#include <ixfs_vmir.h>

#include <exception>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace
{

// Where the log callback, which gets no context, finds what belongs to this process's one call.
class Reporter
{
public:
    Reporter(const Request& request, const Surroundings& surroundings)
        : surroundings_(surroundings), records_(surroundings.records), mounts_(request.server)
    {
    }

    // Any thread.
    void log(int severity, const char* tag, const char* message)
    {
        const std::lock_guard<std::mutex> one_at_a_time(mutex_);
        const auto now = std::chrono::system_clock::now();
        take_over_errors();
        watch_mounts(tag, message);
        watch_lock(message);
        send(LogLine{now, severity, tag, message});
    }

    void end(const Outcome& outcome)
    {
        const std::lock_guard<std::mutex> one_at_a_time(mutex_);
        may_hold_lock_ = false;
        send(outcome);
    }

private:
    // A helper that writes to a pipe without a reader would be killed before it has unmounted.
    void take_over_errors() const
    {
        if (getppid() != surroundings_.supervisor)
            dup2(surroundings_.caller_errors, STDERR_FILENO);
    }

    void watch_mounts(const char* tag, const char* message)
    {
        try {
            if (mounts_.take(tag, message))
                send(mounts_.own());
        } catch (const std::system_error&) { // the supervisor will find that it cannot look either
        }
    }

    void watch_lock(std::string_view message)
    {
        if (begins_with(message, "INF - waiting for mount mutex"))
            may_hold_lock_ = true;
        else if (begins_with(message, "INF - mount point - "))
            may_hold_lock_ = false;
    }

    // If nobody reads any more, the work is to be done all the same. If nobody reads for a while,
    // it stands still, but never with the host's lock: all others would stand still, too.
    void send(const Record& record)
    {
        records_.write(encode(record));
        if (!may_hold_lock_)
            records_.finish(true);
    }

    std::mutex mutex_;
    const Surroundings surroundings_;
    Outlet records_;
    bool may_hold_lock_ = false;
    MountWatch mounts_;
};

Reporter* reporter;

void log_line(int severity, const char* tag, const char* message) noexcept
{
    try {
        reporter->log(severity, tag, message);
    } catch (const std::exception&) {
        // A callback must not throw, and there is nowhere left to say that a line was lost.
    }
}

Outcome prepare(const Request& request)
{
    MountCreds creds{};
    creds.server = request.server.c_str();
    creds.port = request.port;
    creds.schedule_type = request.schedule_type;
    creds.timeout = request.timeout;
    creds.mount_cred = request.credentials.mount.c_str();
    creds.unmount_cred = request.credentials.unmount.c_str();
    creds.backup_id = request.backup_id;
    LogInfo log{nullptr, log_line};
    std::vector<std::string> disks = request.disks;

    Outcome outcome{};
    outcome.status = ixfs_prepare_vmir(creds, disks, &log, outcome.configuration, outcome.paths,
                                       request.new_disk_uuids);
    return outcome;
}

Outcome outcome_of(const Request& request)
{
    try {
        Outcome outcome = request.remove_view ? remove_view(request, log_line) : prepare(request);
        if (outcome.status_text.empty()) {
            const char* const text = ixfs_status_text(outcome.status);
            outcome.status_text = text != nullptr ? text : "unknown status";
        }
        return outcome;
    } catch (const std::exception& error) { // no status of the library's: memory, random source
        return {EC_SYSTEM_ERROR, error.what(), {}, {}};
    }
}

} // namespace

void work(const Request& request, const Surroundings& surroundings) noexcept
{
    // Stays until the process ends: a thread that watches the mount may still log.
    static Reporter only_one(request, surroundings);
    reporter = &only_one;
    only_one.end(outcome_of(request));
}
