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

// A fixture with an image of no disks, in a folder that the helper says is where it mounted. Its
// prepare() checks each time that no lock and no file descriptor is left. The VM's disks get their
// names in the view as they come; the expectations that the fixture offers are of a VM in "vm".
class ImageTest : public testing::Test
{
protected:
    ImageTest();

    // The full path of something in the image directory or in the view folder.
    std::string in_image(const std::string& name) const;
    std::string in_view(const std::string& name) const;

    // The same relative to the mount point; the first of a VM in "vm".
    std::string original_path(const std::string& name) const;
    std::string view_path(const std::string& name) const;

    // The names in the view folder, sorted.
    std::vector<std::string> view_names() const;

    // Writes the VM configuration.
    void write_config(const std::string& bytes);

    // Gives the VM one more disk; its descriptor, its data and its entry.
    void add_disk(const std::string& name, const std::string& folder = "vm");

    // What add_disk writes into a descriptor, but for the data file's name.
    static std::string descriptor(const std::string& data_file_name);

    ec_status prepare();

    // What prepare() logged on this thread between its mount and its unmount.
    Lines image_lines() const;

    // The helper's commands so far: "mount" and "umount".
    std::vector<std::string> helper_commands() const;

    // Expected parts of image_lines(), in their order.
    std::string config_path() const;
    Lines config_lines(std::size_t size = 5, std::size_t text_size = 5) const; // up to the text
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
