#include "preparation.h"

#include "host_locks.h"
#include "leftovers.h"
#include "progress.h"

#include <cerrno>
#include <ixfs.h>
#include <poll.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace
{

constexpr std::size_t block_size = 65536; // all that a pipe holds

// What is there, but no more than a block: who writes on and on must not keep signals from being
// seen. Nothing at the end.
std::optional<std::string> read_what_is_there(const OpenDescriptor& descriptor)
{
    std::string block(block_size, '\0');
    const ssize_t size = read(descriptor.number(), block.data(), block.size());
    if (size == 0 || (size == -1 && errno != EAGAIN && errno != EINTR))
        return std::nullopt;
    block.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return block;
}

bool holds_mount_mutex(pid_t process)
try {
    const std::optional<HostLock> lock = find_mount_mutex();
    return lock && lock->held && lock->holder == process;
} catch (const std::system_error&) {
    return false; // if it does hold it, the kernel gives it up at the process's end
}

} // namespace

Preparation::Preparation(const Request& request, const Voice& voice,
                         const std::function<void()>& in_child)
    : request_(request), voice_(voice), worker_(request, in_child), phase_(request)
{
}

bool Preparation::read_records()
{
    const std::optional<std::string> bytes = read_what_is_there(worker_.records());
    reader_.take(bytes.value_or(""));
    while (std::optional<Record> record = reader_.next())
        std::visit([&](auto& value) { take(std::move(value)); }, *record);
    return bytes.has_value();
}

void Preparation::take(const LogLine& line)
{
    phase_.take(line);
    voice_.log(line, request_);
}

void Preparation::read_errors()
{
    if (!worker_.errors().is_open())
        return;
    const std::optional<std::string> bytes = read_what_is_there(worker_.errors());
    error_text_ += bytes.value_or("");
    if (!bytes)
        worker_.errors().close();
    take_error_lines(!bytes);
}

void Preparation::take_error_lines(bool at_end)
{
    std::size_t begin = 0;
    for (std::size_t end = 0; begin < error_text_.size(); begin = end + 1) {
        end = error_text_.find('\n', begin);
        const bool goes_on = end == std::string::npos;
        if (goes_on && !at_end && error_text_.size() - begin < block_size)
            break;
        end = std::min(end, error_text_.size());
        const std::string line = error_text_.substr(begin, end - begin);
        phase_.take_helper_error(line);
        voice_.helper_error(line, request_);
    }
    error_text_.erase(0, begin);
}

void Preparation::cut_short()
{
    // Stopped, it does not get any further while it is looked at.
    if (!phase_.waits_to_mount() || cut_short_ || !worker_.stop())
        return;
    read_records();
    if (phase_.waits_to_mount() && !holds_mount_mutex(worker_.pid())) {
        cut_short_ = true;
        worker_.kill();
    } else {
        worker_.go_on();
    }
}

std::optional<long> Preparation::pause_to_announce()
{
    if (!phase_.end_of_pauses() || pause_announced_)
        return std::nullopt;
    pause_announced_ = true;
    return seconds_of_pause_left(phase_, Phase::Time::clock::now());
}

Result Preparation::finish(int signal)
{
    const int end_signal = worker_.wait();
    read_errors(); // what is there: a helper that lives on may keep it open
    take_error_lines(true);

    Result result;
    result.server = request_.server;
    result.backup_id = request_.backup_id;
    result.signal = signal;
    take_outcome(result, end_signal);
    const bool failed = result.status != EC_OK;
    result.step = step_name(failed && outcome_ ? phase_.step_before_unmount() : phase_.step());
    result.helper_exit_status = phase_.helper_exit_status();
    result.helper_lines = phase_.helper_lines();
    look_for_mounts(result);
    look_for_helpers();
    result.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin_);
    return result;
}

void Preparation::take_outcome(Result& result, int end_signal)
{
    if (outcome_) {
        result.status = outcome_->status;
        result.status_text = outcome_->status_text;
        result.paths = std::move(outcome_->paths);
        result.configuration = std::move(outcome_->configuration);
        if (result.status != EC_OK)
            result.disk =
                phase_.failed_disk().empty() ? phase_.current_disk() : phase_.failed_disk();
        return;
    }
    result.status = EC_SYSTEM_ERROR;
    if (cut_short_)
        result.status_text = "ended on request before anything was mounted";
    else if (end_signal != 0)
        result.status_text = "its process was ended by signal " + std::to_string(end_signal);
    else
        result.status_text = "its process ended without a result";
}

void Preparation::look_for_mounts(Result& result)
{
    try {
        const std::vector<Mount> left = mounts_left(mounts_);
        if (left.empty())
            return;
        result.still_mounted = true;
        result.mount_point = left.front().point;
        voice_.complain(describe_mounts_left(left, request_.server), request_);
    } catch (const std::system_error& error) {
        if (mounts_.folders.empty())
            return;                  // the helper was never run
        result.still_mounted = true; // for all that is known
        result.mount_point = mounts_.folders.back();
        voice_.complain(std::string("cannot find out what is mounted: ") + error.what(), request_);
    }
}

// The library comes to a result only when they have ended.
void Preparation::look_for_helpers()
{
    const std::string text = outcome_ ? "" : describe_helpers_left(worker_.pid(), request_.server);
    if (!text.empty())
        voice_.complain(text, request_);
}

// Not for long: a file system that hangs holds up its end.
void Preparation::await_end()
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point last = Clock::now() + std::chrono::seconds(1);
    pollfd records{worker_.records().number(), POLLIN, 0};
    while (read_records() && Clock::now() < last) {
        constexpr int milliseconds = 100;
        poll(&records, 1, milliseconds);
    }
}

void Preparation::give_up()
{
    worker_.kill();
    await_end();
    voice_.complain(describe_given_up(worker_.pid(), request_, phase_, mounts_), request_);
}
