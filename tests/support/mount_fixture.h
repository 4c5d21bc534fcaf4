// A handle, a scripted helper, and a folder that stands in for a mounted image.
#ifndef IXFS_TESTS_MOUNT_FIXTURE_H
#define IXFS_TESTS_MOUNT_FIXTURE_H

#include "file_lines.h"
#include "handle_test.h"
#include "interpose.h"
#include "scripted_helper.h"
#include "temp_dir.h"

#include <mutex>
#include <string>
#include <vector>

// The command lines that were started, as the shell gets them. Holds on_popen.
class RecordedCommands
{
public:
    std::vector<std::string> lines() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    decltype(interpose::on_popen)::Hook popen_ =
        interpose::on_popen([this](const char* command, const char*) -> std::optional<FILE*> {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.emplace_back(command);
            return std::nullopt;
        });
};

// Mounts are made with the arguments below. There is no mount directory at first. The image holds
// "backups", as a mount that is alive does.
class MountTest : public HandleTest
{
protected:
    static constexpr char mount_cred[] = "mount-secret";
    static constexpr char unmount_cred[] = "unmount-secret";
    static constexpr int port = 40100;
    static constexpr char server[] = "media1";
    static constexpr char mount_base[] = "/usr/varnis/var/ixfs";
    static constexpr char mount_directory[] = "/usr/varnis/var/ixfs/media1";

    // Its command line, as log lines show it.
    static constexpr char shown_mount_command[] =
        R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100 -timeout 60  )"
        R"(-cred mount-secret /usr/varnis/var/ixfs/me...)";

    MountTest();
    void TearDown() override { handle.reset(); } // before the helper goes

    char* mount(unsigned int timeout = 60);

    // The answers of a helper that mounts the image, without and with telling a mount path. Only
    // with one does the library look into the mount.
    ScriptedHelper::Answer mounts_image() const;
    ScriptedHelper::Answer mounts_image_with_path() const;

    // Mounts with such an answer, then forgets all lines. Later runs answer `later`.
    void given_mount(const ScriptedHelper::Answer& answer,
                     const std::vector<ScriptedHelper::Answer>& later = {{"EXIT_STATUS=0"}});

    // The unmount command for the image.
    std::string unmount_command() const;

    // The latest command as the log shows it.
    std::string displayed_command() const;

    ScriptedHelper helper;
    TempDir image;
};

// What an operation says, in its own tag.
class Speaker
{
public:
    explicit constexpr Speaker(const char* tag) : tag_(tag) {}

    Line info(const std::string& message) const { return {IXFS_LOG_INF, tag_, message + "\n"}; }
    Line error(const std::string& message) const { return {IXFS_LOG_ERR, tag_, message + "\n"}; }

private:
    const char* tag_;
};

inline constexpr Speaker mount_says("ixfs_mount()");
inline constexpr Speaker unmount_says("ixfs_unmount()");
inline constexpr Speaker local_unmount_says("_ixfs_umount()");
inline constexpr Speaker folder_create_says("_ixfs_folder_create()");
inline constexpr Speaker folder_delete_says("_ixfs_folder_delete()");
inline constexpr Speaker validate_says("_ixfs_mount_validate()");
inline constexpr Speaker thread_says("_ixfs_mount_validate_thread()");
inline constexpr Speaker context_says("ixfs_recreate_minimal_context()");

// A successful mount's lines up to the first run of the helper, with MountTest's arguments.
Lines lines_before_mount_command();

// A line for the run and one for each response.
Lines lines_of_run(const Speaker& speaker, const std::string& command,
                   const std::vector<std::string>& responses);

// The lines of an unmount up to the first run of the helper.
Lines lines_before_unmount_command();

// A look into a mount point that finds "backups".
Line line_of_validation(const std::string& mount_point);

#endif
