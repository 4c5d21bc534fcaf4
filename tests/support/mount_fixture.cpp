#include "mount_fixture.h"

#include <filesystem>

namespace fs = std::filesystem;

MountTest::MountTest()
{
    for (const fs::directory_entry& directory : fs::directory_iterator(mount_base))
        fs::remove_all(directory);
    image.make_folder("backups");
}

char* MountTest::mount(unsigned int timeout)
{
    return ixfs_mount(handle.get(), mount_cred, unmount_cred, port, server, timeout, nullptr);
}

ScriptedHelper::Answer MountTest::mounts_image() const
{
    return {"MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"};
}

ScriptedHelper::Answer MountTest::mounts_image_with_path() const
{
    return {"MNTPATH=/m/x", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"};
}

void MountTest::given_mount(const ScriptedHelper::Answer& answer,
                            const std::vector<ScriptedHelper::Answer>& later)
{
    helper.answers({answer});
    ASSERT_EQ(mount(), image.path());
    helper.answers(later);
    ASSERT_TRUE(log.wait_for("INF - starting validate thread\n"));
    log.take();
}

std::string MountTest::unmount_command() const
{
    return R"("/usr/varnis/stowline/bin/ixfs" umount -f -server media1 -port 40100 )"
           "-cred unmount-secret " +
           image.path();
}

std::string MountTest::displayed_command() const
{
    const std::string start = "INF - running command - ";
    std::string command;
    for (const Line& line : log.lines()) {
        if (line.message.compare(0, start.size(), start) == 0)
            command = line.message.substr(start.size(), line.message.size() - start.size() - 1);
    }
    return command;
}

Lines lines_before_mount_command()
{
    const std::string directory = "/usr/varnis/var/ixfs/media1";
    return Lines{mount_says.info("INF - waiting for mount mutex...")} +
           folder_created_lines("/usr/varnis/var/ixfs", "media1", 1) +
           // a parent that was there already says the same of the whole directory
           mount_says.info("INF - Create mount dir " + directory + " already exists.") +
           mount_says.info("INF - Successfully setup mount directory: " + directory + ".");
}

Lines lines_of_run(const Speaker& speaker, const std::string& command,
                   const std::vector<std::string>& responses)
{
    Lines lines{speaker.info("INF - running command - " + command)};
    for (const std::string& response : responses)
        lines.push_back(speaker.info("INF - response - " + response));
    return lines;
}

Lines lines_before_unmount_command()
{
    return {unmount_says.error("INF - Lets terminate the event..."),
            unmount_says.error("INF - Event terminated..."),
            unmount_says.info("INF - waiting for mount mutex"),
            unmount_says.info("INF - got the mount mutex")};
}

Line line_of_validation(const std::string& mount_point)
{
    return validate_says.info("INF - Validating name: " + mount_point +
                              "/backups, mount_point: " + mount_point);
}
