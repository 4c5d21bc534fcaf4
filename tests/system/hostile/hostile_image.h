// An image that somebody else has laid traps in, the host that they aim at, and the call that
// prepares the image.
#ifndef IXFS_TESTS_HOSTILE_IMAGE_H
#define IXFS_TESTS_HOSTILE_IMAGE_H

#include "attempt.h"
#include "exact_snapshot.h"
#include "log_recorder.h"
#include "loopback.h"
#include "plant.h"
#include "temp_dir.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

// The host's files lie in a folder of their own, outside of the image: a secret, a folder with
// content, and another, whole image. The image has a configuration and the disks "vm/a" and "vm/b".
class HostileImage : public testing::Test
{
protected:
    static constexpr char configuration[] = "^^.^VIRTUAL_FILE_FSMAP";
    static constexpr char secret_text[] = "secret of the host";
    static constexpr char image[] = "backups/host/allusers/full/1700000000";
    static constexpr char config_text[] = "<vm/>\n";

    HostileImage();
    ~HostileImage() override;

    // Paths on the server's side: below the root, in the image directory, in its view folder.
    std::string in_root(const std::string& name) const { return root_ + "/" + name; }
    std::string at(const std::string& name) const
    {
        return in_root(std::string(image) + "/" + name);
    }
    std::string in_view(const std::string& name) const { return at("_vmir/" + name); }

    // The same where the image is mounted, as the library's lines tell it.
    std::string mounted(const std::string& name) const;

    // A disk's entry in datastore form.
    static std::string entry(const std::string& disk);

    // Puts a disk's descriptor and data into the image.
    void make_disk(const std::string& disk) const;

    // Prepares the disks, and checks what holds whatever is in the image: that it ends; that
    // nothing is left mounted, locked or open; that nothing of the host was touched or given away;
    // that the backup's own files are what they were.
    Attempt prepare(std::chrono::seconds limit = std::chrono::seconds(20));

    // Takes away what a preparation that hung has left mounted and locked.
    void clear_away() const;

    // Prepares once as an ordinary image, for what is laid into its view afterwards.
    void given_view();

    // Prepares, and expects that the view was made, the disks in it being their originals.
    void expect_prepared();

    // Prepares, and expects the status, at once, and that no view was told.
    void expect_failed(ec_status status);

    // The same, and that none is left.
    void expect_failed_without_view(ec_status status);

    // The same with status 20, a line that names the disk, and that nothing was even begun.
    void expect_refused(const std::string& disk);

    // The lines of severity IXFS_LOG_ERR that the latest preparation logged, with a tag or with
    // any.
    std::vector<std::string> errors(const std::string& tag = "") const;

    LogRecorder log;
    const TempDir host;
    Order order{{"hostile", 4010, 0, 30, nullptr, "mount-cred", "unmount-cred", "host_1700000000"},
                {entry("vm/a"), entry("vm/b")}};

private:
    int mounts() const;
    void expect_no_secret(const Attempt& attempt) const;
    void expect_original(const std::string& disk, const std::string& name) const;

    Loopback loopback_;
    const std::string root_;
    const std::string mount_point_;
};

#endif
