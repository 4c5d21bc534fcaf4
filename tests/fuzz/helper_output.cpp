// A mount and an unmount by the output of the mount helper. The input is the output of its runs,
// with "%%" and a newline between them; runs without any say nothing.
//
// Changes no file, but takes the mount mutex: to be run under tests/support/in_namespace.
#include "check.h"
#include "fake_time.h"
#include "fuzz_target.h"
#include "interpose.h"
#include "log_lines.h"
#include "record_view.h"
#include "unwatched_mounts.h"

#include "reference/helper.h"

namespace
{

constexpr char server[] = "media1";
constexpr int port = 40100;
constexpr char mount_cred[] = "mount-secret";
constexpr char unmount_cred[] = "unmount-secret";
constexpr int timeout = 2; // seconds, hence three runs at most

using Lines = std::vector<std::string>;

// A helper that says what it is given, one run after another.
class GivenHelper
{
public:
    explicit GivenHelper(Lines outputs) : outputs_(std::move(outputs)) {}

    const Lines& commands() const { return commands_; }

private:
    FILE* start(const char* command)
    {
        const std::size_t run = commands_.size();
        commands_.emplace_back(command);
        output_ = run < outputs_.size() ? outputs_[run] : "";
        return fmemopen(output_.data(), output_.size(), "r");
    }

    Lines outputs_;
    std::string output_; // of the run that goes on
    Lines commands_;
    decltype(interpose::on_popen)::Hook popen_ = interpose::on_popen(
        [this](const char* command, const char*) { return std::optional<FILE*>(start(command)); });
    decltype(interpose::on_pclose)::Hook pclose_ =
        interpose::on_pclose([](FILE* stream) { return std::optional<int>(std::fclose(stream)); });
};

// A system on which a mount point may be any path of this one: nothing is changed, nothing is
// removed, and no thread watches.
struct HarmlessSystem {
    decltype(interpose::on_mkdir)::Hook mkdir = interpose::on_mkdir.returns(0);
    decltype(interpose::on_umount2)::Hook umount2 = interpose::on_umount2.fails(EPERM);
    decltype(interpose::on_opendir)::Hook opendir = interpose::on_opendir.fails(ENOENT);
    decltype(interpose::on_unlink)::Hook unlink = interpose::on_unlink.fails(EPERM);
    decltype(interpose::on_rmdir)::Hook rmdir = interpose::on_rmdir.fails(EPERM);
    UnwatchedMounts unwatched;
    decltype(interpose::on_stat)::Hook stat =
        interpose::on_stat([](const char* path, struct stat*) -> std::optional<int> {
            errno = ENOENT;
            return reference::HelperModel::is_alive(path) ? 0 : -1;
        });
};

void check_mount(_ixfs_control_t* handle, reference::HelperModel& model)
{
    const char* const mount_point =
        ixfs_mount(handle, mount_cred, unmount_cred, port, server, timeout, nullptr);
    const int expected = model.mount();
    require_equal(mount_point != nullptr, expected == 0, "whether the mount succeeds");
    require_equal(record_view::has_mount(handle), expected == 0, "whether the handle has a mount");
    require_equal(ixfs_last_error(handle), expected, "last status of the mount");
    if (mount_point == nullptr)
        return;
    require_equal(std::string(mount_point), model.mount_point, "mount point");
    require_equal(record_view::mount(handle).mnt_path, model.mnt_path, "mount path");
}

void check_unmount(_ixfs_control_t* handle, reference::HelperModel& model)
{
    const int expected = model.unmount();
    require_equal(ixfs_unmount(handle), expected, "status of the unmount");
    require_equal(ixfs_last_error(handle), expected, "last status of the unmount");
    require(!record_view::has_mount(handle), "no mount is left");
}

void check_unmount_commands(const LogLines& log, const GivenHelper& helper,
                            const reference::HelperModel& model)
{
    const std::string expected =
        reference::unmount_command(server, port, unmount_cred, model.mount_point);
    const Lines displayed = log.behind("INF - running command - ");
    for (std::size_t run = 0; run < helper.commands().size(); ++run) {
        const std::string& command = helper.commands()[run];
        if (!reference::contains(command, "\" umount -f "))
            continue;
        require_equal(command, expected, "unmount command");
        require_equal(displayed[run], reference::displayed(command, unmount_cred) + "\n",
                      "displayed unmount command");
    }
}

Lines with_newlines(Lines lines)
{
    for (std::string& line : lines)
        line += "\n";
    return lines;
}

void check(const Lines& outputs)
{
    const GivenHelper helper(outputs);
    const HarmlessSystem system;
    const FakeClock clock(FakeClock::OtherThreads::may_sleep);
    LogLines log;
    const Handle handle = make_handle(log, IXFS_FLAG_UNMOUNT_CRED);
    reference::HelperModel model(outputs, timeout);

    check_mount(handle.get(), model);
    if (record_view::has_mount(handle.get()))
        check_unmount(handle.get(), model);
    require_equal(helper.commands().size(), model.runs, "number of runs");
    require_equal(log.behind("INF - response - "), with_newlines(model.responses), "responses");
    require_equal(log.job_lines_behind("JBD - INF - response - "), with_newlines(model.reported),
                  "reported responses");
    check_unmount_commands(log, helper, model);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t most_runs = 2 * (timeout + 1);
    check(split(bytes_of(data, size), "%%\n", most_runs));
    return 0;
}
