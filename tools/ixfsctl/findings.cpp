#include "findings.h"

#include "log_text.h"
#include "product.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace
{

// A path as a word for the shell.
std::string quoted(const std::string& path)
{
    constexpr const char* plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                  "._:+/@%-";
    if (path.find_first_not_of(plain) == std::string::npos)
        return path;
    std::string word = "'";
    for (const char character : path)
        word += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return word + "'";
}

class Findings
{
public:
    Findings(const HostState& host, std::chrono::seconds slow_after)
        : host_(host), slow_after_(slow_after)
    {
    }

    std::vector<Finding> run()
    {
        look_at_helper_program();
        for (const MountDirectory& directory : host_.directories) {
            if (directory.layers.empty())
                look_at_directory(directory);
            else
                look_at_mount(directory);
        }
        look_at_mount_mutex();
        for (const LockState& lock : host_.view_locks)
            look_at_view_lock(lock);
        if (host_.semaphores_used_up)
            add("no_semaphores",
                "The host's semaphores are used up: who needs a new lock gets none.",
                {"`ixfsctl clean` removes those of libixfs that nobody uses.",
                 "See whose the others are: `ipcs -s -c`", "See the limits: `sysctl kernel.sem`"});
        for (const HelperProcess& helper : host_.helpers) {
            if (!is_started_by_helper(helper.process))
                look_at_helper(helper);
        }
        return std::move(found_);
    }

private:
    void add(const std::string& id, const std::string& text, std::vector<std::string> advice)
    {
        found_.push_back({id, escape_control_characters(text), std::move(advice)});
        for (std::string& line : found_.back().advice)
            line = escape_control_characters(line);
    }

    void look_at_helper_program()
    {
        if (!host_.helper_problem.empty())
            add("helper_not_runnable",
                std::string("The mount helper ") + helper_path + " " + host_.helper_problem +
                    ": nothing can be mounted.",
                {"Install the media server's client again."});
    }

    void look_at_directory(const MountDirectory& directory)
    {
        if (!directory.is_directory)
            add("not_a_directory",
                directory.path + " is not a directory: no image is mounted through it.",
                {"Find out who put it there, then `rm " + quoted(directory.path) + "`."});
        else if (directory.holds_files)
            add("directory_holds_files",
                directory.path + " holds files, but nothing is mounted on it: the next mount hides "
                                 "them.",
                {"Look at them, and move them to where they belong. `ixfsctl clean` deletes no "
                 "file."});
    }

    void look_at_mount(const MountDirectory& directory)
    {
        const bool stale = host_.mounts_are_stale().value_or(false);
        const std::vector<std::string> clean = {"`ixfsctl clean --server " +
                                                quoted(directory.server) + "`"};
        if (stale)
            add("stale_mount",
                directory.path + " is mounted, but no living process has libixfs loaded: nobody "
                                 "will unmount it.",
                clean);
        else if (directory.layers.size() > 1)
            add("stacked_mounts",
                directory.path + " carries " + std::to_string(directory.layers.size()) +
                    " mounts, one on top of the other: an unmount takes off the top one, whoever "
                    "made it.",
                {"Let one preparation of a server run at a time.",
                 "When those that run have ended: `ixfsctl clean`"});
        look_at_backups(directory, stale ? clean
                                         : std::vector<std::string>{
                                               "See whether the media server is up.",
                                               "If it stays like this, as root: `umount --force " +
                                                   quoted(directory.path) + "`"});
    }

    void look_at_backups(const MountDirectory& directory, const std::vector<std::string>& advice)
    {
        switch (directory.backups) {
        case Backups::no_answer:
            add("hung_mount", directory.path + " does not answer within a second.", advice);
            break;
        case Backups::missing:
            add("no_backups", directory.path + " is mounted, but holds no \"backups\".", advice);
            break;
        case Backups::failed:
            add("failing_mount",
                directory.path + " fails: " + std::generic_category().message(directory.error) +
                    ".",
                advice);
            break;
        case Backups::not_looked_for:
        case Backups::found:
            break;
        }
    }

    void look_at_mount_mutex()
    {
        if (!host_.mount_mutex_problem.empty())
            add("mount_mutex_unreadable", "The mount lock: " + host_.mount_mutex_problem + ".",
                {"Run as the user of the callers, usually root.", "`ipcs -s`"});
        if (!host_.mount_mutex)
            return;
        const LockState& mutex = *host_.mount_mutex;
        if (is_left_behind(mutex.lock))
            add("unused_mount_mutex", "The mount lock exists, but nobody has it open.",
                {"It is in nobody's way. To remove it: `ixfsctl clean`"});
        if (mutex.lock.held)
            look_at_holder(mutex, "The mount lock");
    }

    void look_at_view_lock(const LockState& view)
    {
        if (is_left_behind(view.lock))
            add("unused_view_lock",
                "A lock of a view (semaphore set " + std::to_string(view.lock.set) +
                    ") exists, but nobody has it open.",
                {"It is in nobody's way. To remove it: `ixfsctl clean`"});
    }

    void look_at_holder(const LockState& state, const std::string& name)
    {
        if (!state.holder) {
            add("unseen_holder",
                name + " is held by a process that cannot be seen from here (PID " +
                    std::to_string(state.lock.holder) + ").",
                {"It may be in a container that shares this host's semaphores: run ixfsctl there, "
                 "too."});
            return;
        }
        const Process& holder = *state.holder;
        if (holder.state == 'T' || holder.state == 't')
            add("stopped_holder",
                name + " is held by a process that is stopped: " + describe(holder) +
                    ". All others wait.",
                {"`kill -CONT " + std::to_string(holder.pid) + "`"});
    }

    bool is_started_by_helper(const Process& process) const
    {
        return std::any_of(
            host_.helpers.begin(), host_.helpers.end(),
            [&](const HelperProcess& helper) { return helper.process.pid == process.parent; });
    }

    void look_at_helper(const HelperProcess& helper)
    {
        const std::string pid = std::to_string(helper.process.pid);
        if (helper.orphaned)
            add("orphaned_helper",
                "Nobody waits for this helper any more, and it may still mount: " +
                    describe(helper.process) + ".",
                {"`ixfsctl clean`"});
        else if (helper.process.age > slow_after_)
            add("slow_helper",
                "This helper runs for a long time, and who wants to mount waits for it: " +
                    describe(helper.process) + ".",
                {"See whether the media server is up.",
                 "If it hangs: `kill " + pid + "`. Its caller then goes on, and fails."});
    }

    const HostState& host_;
    const std::chrono::seconds slow_after_;
    std::vector<Finding> found_;
};

} // namespace

std::vector<Finding> find_what_is_wrong(const HostState& host, std::chrono::seconds slow_after)
{
    return Findings(host, slow_after).run();
}
