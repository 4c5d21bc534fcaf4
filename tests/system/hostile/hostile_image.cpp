#include "hostile_image.h"

#include "process_state.h"
#include "touch_watch.h"

#include <fstream>
#include <optional>
#include <sstream>

#include <sys/mount.h>
#include <sys/sem.h>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace
{

constexpr std::size_t page_size = 4096;
constexpr off_t most_searched = 64 << 20; // bytes; what is larger is a hole but for its beginning

std::string descriptor_of(const std::string& disk, const std::string& remark)
{
    return "# Disk DescriptorFile\n# " + remark + "\nRW 128 VMFS \"" +
           fs::path(disk).filename().string() + "-flat.vmdk\"\n";
}

void make_disk_in(const std::string& image, const std::string& disk, const std::string& remark)
{
    const std::string path = image + "/" + disk + ".vmdk";
    std::string data = remark + ", data of " + disk;
    data.resize(64 << 10, 'd');
    plant::file(path + ".desc", descriptor_of(disk, remark));
    plant::file(path, data);
}

void make_image(const std::string& image, const std::string& text, const std::string& remark)
{
    std::string configuration = text;
    configuration.resize(page_size, '\0');
    plant::file(image + "/^^.^VIRTUAL_FILE_FSMAP", configuration);
    for (const char* const disk : {"vm/a", "vm/b"})
        make_disk_in(image, disk, remark);
}

} // namespace

HostileImage::HostileImage()
    : root_("/usr/varnis/var/ixfs-loopback/hostile"), mount_point_("/usr/varnis/var/ixfs/hostile")
{
    make_image(in_root(image), config_text, "backup");
    plant::file(in_root("backups/host/allusers/full/1600000000/vm/a.vmdk"), "older backup");
    make_image(host / image, secret_text, secret_text);
    host.write("secret", secret_text);
    host.write("descriptor", descriptor_of("a", secret_text));
    host.make_folder("folder/deep");
    host.write("folder/one", "1");
    host.write("folder/deep/two", "2");
    fs::permissions(host / "secret", fs::perms::owner_read | fs::perms::owner_write);
}

HostileImage::~HostileImage()
{
    clear_away();
    std::error_code error;
    fs::remove(mount_point_, error); // never what it may hold
    fs::remove_all(root_, error);
    EXPECT_FALSE(error) << error.message();
}

std::string HostileImage::mounted(const std::string& name) const
{
    return mount_point_ + "/" + image + "/" + name;
}

std::string HostileImage::entry(const std::string& disk)
{
    return "[ds] " + std::string(image) + "/" + disk + ".vmdk.desc";
}

void HostileImage::make_disk(const std::string& disk) const
{
    make_disk_in(in_root(image), disk, "backup");
}

int HostileImage::mounts() const
{
    int mounts = 0;
    std::ifstream table("/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);)
        mounts += line.find(" " + mount_point_ + " ") != std::string::npos;
    return mounts;
}

void HostileImage::expect_no_secret(const Attempt& attempt) const
{
    EXPECT_THAT(attempt.config, Not(HasSubstr(secret_text))) << "given to the caller";
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root_)) {
        if (entry.is_symlink() || !entry.is_regular_file() ||
            entry.file_size() > static_cast<std::uintmax_t>(most_searched))
            continue;
        EXPECT_THAT(bytes_of(entry.path()), Not(HasSubstr(secret_text)))
            << "copied to " << entry.path();
    }
}

Attempt HostileImage::prepare(std::chrono::seconds limit)
{
    const ExactSnapshot before(host.path(), ExactSnapshot::Of::host);
    const ExactSnapshot backup(root_, ExactSnapshot::Of::backup);
    const TouchWatch watch(host.path());
    log.take();
    Attempt attempt = prepare_elsewhere(order, limit);
    EXPECT_THAT(watch.touched(), IsEmpty()) << "of the host";
    EXPECT_THAT(before.changes(), IsEmpty()) << "of the host";
    EXPECT_THAT(backup.changes(), IsEmpty()) << "of the backup";
    EXPECT_FALSE(attempt.hung);
    if (attempt.hung) {
        clear_away();
        return attempt;
    }
    EXPECT_EQ(attempt.exit_status, 0);
    EXPECT_EQ(attempt.descriptors_left, 0);
    EXPECT_EQ(semaphore_sets().size(), 0U);
    EXPECT_EQ(mounts(), 0);
    expect_no_secret(attempt);
    return attempt;
}

void HostileImage::clear_away() const
{
    while (umount2(mount_point_.c_str(), MNT_DETACH) == 0) {
    }
    for (const SemaphoreSet& set : semaphore_sets())
        semctl(set.id, 0, IPC_RMID);
}

void HostileImage::given_view()
{
    ASSERT_EQ(prepare().status, EC_OK);
}

// Descriptor and data of a disk in the view: real files, the data being the original's.
void HostileImage::expect_original(const std::string& disk, const std::string& name) const
{
    const std::string descriptor = in_view(name + ".vmdk");
    ASSERT_TRUE(fs::is_regular_file(fs::symlink_status(descriptor))) << descriptor;
    EXPECT_EQ(fs::hard_link_count(descriptor), 1U);
    EXPECT_THAT(bytes_of(descriptor), HasSubstr("RW 128 VMFS \"" + name + "-flat.vmdk\"\r\n"));
    const std::string data = in_view(name + "-flat.vmdk");
    ASSERT_TRUE(fs::is_regular_file(fs::symlink_status(data))) << data;
    EXPECT_TRUE(fs::equivalent(data, at(disk + ".vmdk")));
}

void HostileImage::expect_prepared()
{
    const Attempt attempt = prepare();
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.pauses, 0);
    EXPECT_EQ(attempt.config, config_text);
    const std::string view = "[ds] " + std::string(image) + "/_vmir/";
    EXPECT_THAT(attempt.out, ElementsAre(view + "a.vmdk", view + "b.vmdk"));
    expect_original("vm/a", "a");
    expect_original("vm/b", "b");
}

void HostileImage::expect_failed(ec_status status)
{
    const Attempt attempt = prepare();
    EXPECT_EQ(attempt.status, status);
    EXPECT_EQ(attempt.pauses, 0) << "at once";
    EXPECT_THAT(attempt.out, IsEmpty());
}

void HostileImage::expect_failed_without_view(ec_status status)
{
    expect_failed(status);
    EXPECT_FALSE(fs::exists(fs::symlink_status(at("_vmir"))));
}

void HostileImage::expect_refused(const std::string& disk)
{
    const ExactSnapshot whole(root_, ExactSnapshot::Of::whole);
    expect_failed(EC_INVALID_PARAMETER);
    EXPECT_THAT(whole.changes(), IsEmpty()) << "of the image";
    EXPECT_THAT(errors(), testing::Contains(HasSubstr(entry(disk))));
    EXPECT_THAT(log.with_tag("_ixfs_view_lock()"), IsEmpty()) << "no lock is tried for";
    EXPECT_THAT(log.with_tag("makeViewFolder"), IsEmpty());
}

std::vector<std::string> HostileImage::errors(const std::string& tag) const
{
    std::vector<std::string> messages;
    for (const Line& line : tag.empty() ? log.lines() : log.with_tag(tag)) {
        if (line.severity == IXFS_LOG_ERR)
            messages.push_back(line.message);
    }
    return messages;
}
