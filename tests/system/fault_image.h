// The images that fault_helper.c mounts.
#ifndef IXFS_TESTS_FAULT_IMAGE_H
#define IXFS_TESTS_FAULT_IMAGE_H

#include "tree_snapshot.h"

#include <filesystem>
#include <string>
#include <vector>

// The image of one server, for as long as the object lives. The server's name says what the helper
// does. The image holds a VM of two disks, but for the server "empty".
class FaultImage
{
public:
    explicit FaultImage(const std::string& server, long backup_time = 1'700'000'000);
    ~FaultImage();
    FaultImage(const FaultImage&) = delete;
    FaultImage& operator=(const FaultImage&) = delete;

    // Fails the test where anything that was in the image is not as it was, or something that is
    // not of the view has come. Removes the view.
    void expect_unchanged() const;

    // Fails the test unless the view holds both disks' descriptor, with a new UUID, and link, and
    // nothing else.
    void expect_view() const;

    bool has_view() const;

    const std::string server;
    const std::string mount_point; // where the library has it mounted
    const std::string backup_id;
    const std::vector<std::string> disks;         // in datastore form
    const std::vector<std::string> disks_in_view; // likewise
    const std::string config = "<vm/>";

private:
    std::filesystem::path root_; // where the helper takes it from
    std::string image_;
    std::string view_;
    TreeSnapshot originals_;
};

#endif
