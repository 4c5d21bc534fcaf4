#include "image_test.h"

#include "process_state.h"
#include "view_lock_test.h"

#include <algorithm>
#include <filesystem>

#include <sys/utsname.h>

namespace
{

std::string host_name()
{
    utsname names{};
    EXPECT_EQ(uname(&names), 0);
    return names.nodename;
}

Line information(const char* tag, const std::string& message)
{
    return {IXFS_LOG_INF, tag, message};
}

} // namespace

ImageTest::ImageTest()
{
    mount_point.make_folder(image_path + "/vm");
    write_config("<vm/>");
    helper.answers({{"MOUNTPOINT=" + mount_point.path(), "EXIT_STATUS=0"}});
}

std::string ImageTest::in_image(const std::string& name) const
{
    return mount_point / (image_path + "/" + name);
}

std::string ImageTest::in_view(const std::string& name) const
{
    return in_image("_vmir/" + name);
}

std::string ImageTest::original_path(const std::string& name) const
{
    return image_path + "/vm/" + name;
}

std::string ImageTest::view_path(const std::string& name) const
{
    return image_path + "/_vmir/" + name;
}

std::vector<std::string> ImageTest::view_names() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(view_folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string ImageTest::config_path() const
{
    return in_image("^^.^VIRTUAL_FILE_FSMAP");
}

void ImageTest::write_config(const std::string& bytes)
{
    mount_point.write(image_path + "/^^.^VIRTUAL_FILE_FSMAP", bytes);
}

std::string ImageTest::descriptor(const std::string& data_file_name)
{
    return "# Disk DescriptorFile\nRW 2048 VMFS \"" + data_file_name +
           "\"\r\nddb.uuid = \"60 00 C2 9f 11 f8 50 a5-18 4c 8d 2f 00 23 4d 0a\"\n";
}

void ImageTest::add_disk(const std::string& name, const std::string& folder)
{
    const std::string data_path = image_path + "/" + folder + "/" + name + ".vmdk";
    mount_point.make_folder(image_path + "/" + folder);
    mount_point.write(data_path + ".desc", descriptor(name + "-flat.vmdk"));
    mount_point.write(data_path, "data of " + folder + "/" + name);
    entries.push_back("[ds] " + data_path + ".desc");
}

ec_status ImageTest::prepare()
{
    const NoDescriptorsLeft no_descriptors_left;
    const NoLocksLeft no_locks_left;
    log.take();
    return ixfs_prepare_vmir(creds, entries, &log_info, config, out, new_disk_uuids);
}

Lines ImageTest::image_lines() const
{
    const Lines all = log.lines_here();
    const Line mounted =
        information("ixfs_mount()", "INF - mount point - " + mount_point.path() + "\n");
    const Line unmounting{IXFS_LOG_ERR, "ixfs_unmount()", "INF - Lets terminate the event...\n"};
    const auto begin = std::find(all.begin(), all.end(), mounted);
    const auto end = std::find(begin, all.end(), unmounting);
    if (end == all.end())
        ADD_FAILURE() << "no image was mounted and unmounted";
    return begin == all.end() ? Lines{} : Lines(begin + 1, end);
}

std::vector<std::string> ImageTest::helper_commands() const
{
    std::vector<std::string> commands;
    for (const ScriptedHelper::Arguments& arguments : helper.runs())
        commands.push_back(arguments.at(0));
    return commands;
}

Lines ImageTest::config_lines(std::size_t size, std::size_t text_size) const
{
    const std::string bytes = std::to_string(size);
    return {
        information("makeClientAndBackupTime",
                    "INF - Finding client and backup time from bid: " + creds.backup_id + "\n"),
        information("buildPathToXml", "INF - Reading VM Config file from: " + config_path() + "\n"),
        exists_line(config_path()),
        information("readXml", "INF - Size reported by stat: " + bytes + " bytes\n"),
        information("readXml",
                    "INF - Found xml file of size: " + bytes + " bytes, " + config_path() + "\n"),
        information("readXml", "INF - Read file size: " + bytes + "\n"),
        information("readXml",
                    "INF - Size after striping padding: " + std::to_string(text_size) + "\n"),
    };
}

Lines ImageTest::lock_lines()
{
    const std::string base_name = "_vv_" + host_name();
    const std::string mutex = "Global\\EGR_1700000000_" + base_name + "_0";
    return {
        view_lock::host_line(host_name()),
        view_lock::base_name_line(base_name),
        view_lock::trying_line(mutex),
        view_lock::won_line(mutex),
    };
}

Lines ImageTest::new_folder_lines() const
{
    return folder_created_lines(mount_point / image_path, "_vmir", 1);
}

Lines ImageTest::existing_folder_lines() const
{
    return {
        exists_line(view_folder),
        information("makeViewFolder",
                    "INF - Using existing folder for view: " + view_folder + "\n"),
    };
}

Lines ImageTest::copied_lines(const std::string& disk, const std::string& base_name,
                              bool again) const
{
    const std::string link_name = base_name + "-flat.vmdk";
    const std::string copy = in_view(base_name + ".vmdk");
    const Lines old_copy = again ? Lines{exists_line(copy)} : Lines{};
    return Lines{exists_line(in_image("vm/" + disk + ".vmdk.desc"))} + old_copy +
           Lines{
               information("copyOrLinkPath", "INF - makeLink? 0\n"),
               information("_ixfs_copy_desc()",
                           "INF - New extent description: " + link_name + "\n"),
               information("copyOrLinkPath", "INF - Created new .desc file: " + copy + "\n"),
               information("copyOrLinkPath", "      point to .vmdk link: " + link_name + "\n"),
           };
}

Lines ImageTest::linked_lines(const std::string& disk, const std::string& base_name) const
{
    return {
        exists_line(in_image("vm/" + disk + ".vmdk")),
        information("copyOrLinkPath", "INF - makeLink? 1\n"),
        information("copyOrLinkPath",
                    "INF - Created link file: " + in_view(base_name + "-flat.vmdk") + "\n"),
    };
}
