// A VM's backup image, and the call that prepares it.
#ifndef IXFS_TESTS_IMAGE_TEST_H
#define IXFS_TESTS_IMAGE_TEST_H

#include "file_lines.h"
#include "ixfs_vmir.h"
#include "log_recorder.h"
#include "scripted_helper.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// A fixture with an image that has a VM configuration, "<vm/>", and no disks yet. It lies in a
// folder of the test's own, which the scripted helper tells as mounted.
class ImageTest : public testing::Test
{
protected:
    ImageTest();

    // Full paths: in the image directory, in its view folder, of the VM configuration.
    std::string in_image(const std::string& name) const;
    std::string in_view(const std::string& name) const;
    std::string config_path() const;

    // Paths relative to the mount point: in the image's folder "vm", in its view folder.
    std::string original_path(const std::string& name) const;
    std::string view_path(const std::string& name) const;

    // The names in the view folder, sorted.
    std::vector<std::string> view_names() const;

    // Writes the VM configuration.
    void write_config(const std::string& bytes);

    // Gives the VM one more disk: its descriptor, its data and its entry.
    void add_disk(const std::string& name, const std::string& folder = "vm");

    // What add_disk writes into a descriptor, but for the data file's name.
    static std::string descriptor(const std::string& data_file_name);

    // Prepares the image, and checks that no lock and no file descriptor is left.
    ec_status prepare();

    // What prepare() logged on this thread between its mount and its unmount.
    Lines image_lines() const;

    // The helper's commands so far.
    std::vector<std::string> helper_commands() const;
    const std::vector<std::string> mounted_and_unmounted{"mount", "umount"};

    // What image_lines() consist of: reading the configuration, locking the view, making its folder
    // or finding it, and for each disk, which lies in "vm", copying its descriptor and linking its
    // data. With `again` there is a copy already.
    Lines config_lines(std::size_t size = 5, std::size_t text_size = 5) const;
    static Lines lock_lines();
    Lines new_folder_lines() const;
    Lines existing_folder_lines() const;
    Lines copied_lines(const std::string& disk, const std::string& base_name,
                       bool again = false) const;
    Lines linked_lines(const std::string& disk, const std::string& base_name) const;

    const std::string image_path = "backups/host/allusers/full/1700000000";
    TempDir mount_point;
    const std::string view_folder = in_image("_vmir");
    ScriptedHelper helper;
    LogRecorder log;

    MountCreds creds{"server",         4010, 0, 30, nullptr, "mount-cred", "unmount-cred",
                     "host_1700000000"};
    std::vector<std::string> entries;
    LogInfo log_info{nullptr, LogRecorder::callback};
    std::string config;
    std::vector<std::string> out;
    bool new_disk_uuids = false;
};

#endif
