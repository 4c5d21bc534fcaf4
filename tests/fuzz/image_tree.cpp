// Preparing an image that somebody else has made. The input describes it, as image_builder.h tells.
//
// Mounts nothing, but makes folders and takes locks: to be run under tests/support/in_namespace.
#include "canned_helper.h"
#include "check.h"
#include "exact_snapshot.h"
#include "fake_time.h"
#include "fuzz_target.h"
#include "image_builder.h"
#include "image_statuses.h"
#include "log_lines.h"
#include "read_only_host.h"
#include "unwatched_mounts.h"

#include "ixfs_vmir.h"

#include <filesystem>
#include <fstream>
#include <set>

#include <sys/stat.h>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace
{

constexpr std::size_t most_lines = 32;
constexpr char secret_text[] = "secret of the host";

std::string findings; // libFuzzer's folder for inputs that fail

const std::string outside = "/usr/varnis/var/outside";
const std::string root = "/usr/varnis/var/image";

// With these nothing of the image was changed.
const std::set<int> refusals = {EC_FOLDER_NOT_CREATED, EC_FILE_NOT_OPENED, EC_FILE_NOT_READ,
                                EC_INVALID_PARAMETER};

// What no image may reach: files, a folder with content, a disk, an image. Gone with the namespace.
class Outside
{
public:
    Outside()
    {
        for (const char* const image : {"", "/backups/host/allusers/full/1700000000"}) {
            write(image + std::string("/^^.^VIRTUAL_FILE_FSMAP"), secret_text);
            write(image + std::string("/vm/a.vmdk"), secret_text);
            write(image + std::string("/vm/a.vmdk.desc"),
                  std::string("RW 128 VMFS \"a-flat.vmdk\"\n# ") + secret_text + "\n");
            write(image + std::string("/vm/folder/file"), secret_text);
        }
    }

    void require_unchanged() const
    {
        require_equal(snapshot().changes(), std::vector<std::string>(), "changes outside");
    }

private:
    static const ExactSnapshot& snapshot()
    {
        static const ExactSnapshot first(outside, ExactSnapshot::Of::host);
        return first;
    }

    static void write(const std::string& name, const std::string& bytes)
    {
        fs::create_directories(fs::path(outside + name).parent_path());
        std::ofstream(outside + name) << bytes;
    }
};

void require_no_secret(const std::string& bytes, const std::string& where)
{
    require(bytes.find(secret_text) == std::string::npos, "the secret is in " + where);
}

void require_no_secret_in_image()
{
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (fs::is_regular_file(entry.symlink_status()))
            require_no_secret(bytes_of(entry.path()), entry.path());
    }
}

struct stat status_of(const std::string& path)
{
    struct stat status {
    };
    require(lstat(path.c_str(), &status) == 0, path + " is there");
    require(S_ISREG(status.st_mode), path + " is a file");
    return status;
}

bool is_same_file(const struct stat& one, const struct stat& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// A link's data is the disk's, or may be: a file system may number hard links apart.
void require_same_data(const std::string& link, const std::string& data)
{
    const struct stat one = status_of(link);
    const struct stat other = status_of(data);
    require(is_same_file(one, other) ||
                (one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
                 one.st_mtim.tv_nsec == other.st_mtim.tv_nsec),
            link + " is the data of " + data);
}

std::string behind_datastore(const std::string& path)
{
    return root + "/" + path.substr(std::string("[ds] ").size());
}

struct Disk {
    std::string data;
    std::string copy;
    std::string link;
};

std::vector<Disk> disks_in_view(const std::vector<std::string>& disks,
                                const std::vector<std::string>& out)
{
    require_equal(out.size(), disks.size(), "number of disks");
    std::vector<Disk> found;
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const std::string data = behind_datastore(disks[i]);
        const std::string copy = behind_datastore(out[i]);
        found.push_back({data.substr(0, data.rfind(".desc")), copy,
                         copy.substr(0, copy.rfind(".vmdk")) + "-flat.vmdk"});
    }
    return found;
}

void require_view(const std::vector<Disk>& disks)
{
    for (const Disk& disk : disks) {
        require_equal(status_of(disk.copy).st_nlink, 1U, "names of a descriptor");
        require_same_data(disk.link, disk.data);
        const struct stat link = status_of(disk.link);
        const bool is_own = is_same_file(link, status_of(disk.data));
        for (const Disk& other : disks)
            require(is_own || !is_same_file(link, status_of(other.data)),
                    disk.link + " is no other disk's data");
    }
}

void prepare(const ImageBuilder& image)
{
    const ExactSnapshot backup(root, ExactSnapshot::Of::backup);
    const ExactSnapshot whole(root, ExactSnapshot::Of::whole);
    const CannedHelper helper("MOUNTPOINT=" + root + "\nEXIT_STATUS=0\n");
    const UnwatchedMounts unwatched;
    LogLines log;

    const MountCreds creds{"server", 40100,        0,        0,
                           nullptr,  "mount-cred", "u-cred", "host_1700000000"};
    LogInfo log_info{nullptr, LogLines::callback};
    std::vector<std::string> disks = image.disks();
    std::vector<std::string> out;
    std::string text;
    int status = -1;
    {
        const FakeClock clock(FakeClock::OtherThreads::may_sleep);
        status = ixfs_prepare_vmir(creds, disks, &log_info, text, out, image.new_disk_uuids());
    }
    require_equal(image_statuses.count(status), 1U,
                  "a status of " + std::to_string(status) + " is possible");
    require_equal(backup.changes(), std::vector<std::string>(), "changes of the backup");
    if (refusals.count(status) != 0)
        require_equal(whole.changes(), std::vector<std::string>(), "changes of a refused image");
    require_no_secret(text, "the configuration");
    require_no_secret_in_image();
    if (status == EC_OK)
        require_view(disks_in_view(disks, out));
    else
        require_equal(out, std::vector<std::string>(), "disks of no view");
}

std::ptrdiff_t open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

void check(const Outside& host, const std::vector<std::string>& lines)
{
    static ImageBuilder image(root, outside);
    image.build(lines);
    host.require_unchanged(); // by the building
    const std::ptrdiff_t descriptors = open_descriptors();
    for (int i = 0; i < (image.twice() ? 2 : 1); ++i) {
        prepare(image);
        host.require_unchanged();
    }
    require_equal(open_descriptors(), descriptors, "open descriptors");
}

} // namespace

// libFuzzer's, before the first input: where it puts those that fail, also from a thread of ours.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    const std::string option = "-artifact_prefix=";
    for (int i = 1; i < *argc; ++i) {
        const std::string argument = (*argv)[i];
        if (argument.rfind(option, 0) == 0)
            findings = argument.substr(option.size());
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static auto* const thread = new ReadOnlyHost(findings);
    const std::string input = bytes_of(data, size);
    if (input.find(secret_text) != std::string::npos)
        return 0; // the fuzzer learns what it is compared with: such an image brings it along
    const std::vector<std::string> lines = split(input, "\n", most_lines);
    thread->run([&lines] {
        static const Outside host;
        check(host, lines);
    });
    return 0;
}
