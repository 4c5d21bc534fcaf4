#include "attempt.h"

#include "child_process.h"
#include "fake_time.h"
#include "log_recorder.h"
#include "process_state.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

using Clock = std::chrono::steady_clock;

// What the process tells, written as it happens: of one that is killed all that came before is
// known.
class Report
{
public:
    enum Kind : std::uint32_t { line, config, path, pauses, descriptors, memory, status };
    struct Entry {
        Kind kind;
        std::int32_t number;
        std::string first;
        std::string second;
    };

    Report() : descriptor_(memfd_create("report", MFD_CLOEXEC))
    {
        if (descriptor_ == -1)
            throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    ~Report() { close(descriptor_); }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void put(const Entry& entry)
    {
        const Header header{entry.kind, entry.number,
                            static_cast<std::uint32_t>(entry.first.size()),
                            static_cast<std::uint32_t>(entry.second.size())};
        std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
        bytes += entry.first + entry.second;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (write(descriptor_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            _exit(1);
    }

    std::vector<Entry> entries() const
    {
        std::vector<Entry> entries;
        off_t at = 0;
        Header header{};
        while (take(at, &header, sizeof(header))) {
            Entry entry{header.kind, header.number, std::string(header.first, '\0'),
                        std::string(header.second, '\0')};
            if (take(at, entry.first.data(), header.first) &&
                take(at, entry.second.data(), header.second))
                entries.push_back(entry);
        }
        return entries;
    }

private:
    struct Header {
        Kind kind;
        std::int32_t number;
        std::uint32_t first;
        std::uint32_t second;
    };

    bool take(off_t& at, void* bytes, std::size_t size) const
    {
        if (pread(descriptor_, bytes, size, at) != static_cast<ssize_t>(size))
            return false;
        at += static_cast<off_t>(size);
        return true;
    }

    int descriptor_;
    std::mutex mutex_;
};

Report* current; // of the child: the log callback has no context

void report_line(int severity, const char* tag, const char* message)
{
    const interpose::RealCalls of_the_test;
    current->put({Report::line, severity, tag, message});
}

int prepare(const Order& order, Report& report)
{
    current = &report;
    LogInfo log_info{nullptr, report_line};
    std::vector<std::string> disks = order.disks;
    std::string config;
    std::vector<std::string> out;
    const auto descriptors = static_cast<int>(open_descriptors().size());
    const long memory = process_status("VmHWM");
    int pauses = 0;
    int status = -1;
    {
        const FakeClock clock;
        status =
            ixfs_prepare_vmir(order.creds, disks, &log_info, config, out, order.new_disk_uuids);
        pauses = static_cast<int>(clock.sleeps().size());
    }
    report.put({Report::memory, static_cast<int>(process_status("VmHWM") - memory), "", ""});
    report.put(
        {Report::descriptors, static_cast<int>(open_descriptors().size()) - descriptors, "", ""});
    report.put({Report::pauses, pauses, "", ""});
    report.put({Report::config, 0, config, ""});
    for (const std::string& path : out)
        report.put({Report::path, 0, path, ""});
    report.put({Report::status, status, "", ""});
    return 0;
}

void add(Attempt& attempt, const Report::Entry& entry)
{
    switch (entry.kind) {
    case Report::line:
        LogRecorder::callback(entry.number, entry.first.c_str(), entry.second.c_str());
        break;
    case Report::config:
        attempt.config = entry.first;
        break;
    case Report::path:
        attempt.out.push_back(entry.first);
        break;
    case Report::pauses:
        attempt.pauses = entry.number;
        break;
    case Report::descriptors:
        attempt.descriptors_left = entry.number;
        break;
    case Report::memory:
        attempt.memory = entry.number;
        break;
    case Report::status:
        attempt.status = entry.number;
        break;
    }
}

bool ends_within(const ChildProcess& child, std::chrono::seconds limit)
{
    const Clock::time_point end = Clock::now() + limit;
    while (!child.has_ended() && Clock::now() < end)
        usleep(500);
    return child.has_ended();
}

} // namespace

Attempt prepare_elsewhere(const Order& order, std::chrono::seconds limit)
{
    Report report;
    Attempt attempt;
    ChildProcess child(STDERR_FILENO,
                       [&](ChildProcess::Parent&) { return prepare(order, report); });
    attempt.hung = !ends_within(child, limit);
    if (attempt.hung)
        child.kill();
    attempt.exit_status = child.wait();
    for (const Report::Entry& entry : report.entries())
        add(attempt, entry);
    return attempt;
}
