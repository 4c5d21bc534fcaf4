// Reading the VM configuration, as a preparation of a VM without disks does. The input is the file.
//
// Mounts nothing, but makes folders and takes locks: to be run under tests/support/in_namespace.
#include "canned_helper.h"
#include "check.h"
#include "fake_time.h"
#include "fuzz_target.h"
#include "log_lines.h"
#include "unwatched_mounts.h"

#include "reference/text.h"

#include "ixfs_vmir.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace
{

// An image that has a configuration file alone. Gone with the namespace.
class Image
{
public:
    Image()
    {
        std::filesystem::create_directory(mount_point); // its parent is in_namespace's
        std::filesystem::create_directories(folder_);
    }

    void write(const std::string& bytes) const { std::ofstream(configuration()) << bytes; }

    std::string read() const
    {
        std::ifstream file(configuration());
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::string mount_point = "/usr/varnis/var/image";

private:
    std::string configuration() const { return folder_ + "/^^.^VIRTUAL_FILE_FSMAP"; }

    const std::string folder_ = mount_point + "/backups/host/allusers/full/1700000000";
};

void check(const Image& image, const std::string& bytes)
{
    image.write(bytes);
    const CannedHelper helper("MOUNTPOINT=" + image.mount_point + "\nEXIT_STATUS=0\n");
    const FakeClock clock(FakeClock::OtherThreads::may_sleep);
    const UnwatchedMounts unwatched;
    LogLines log;

    const MountCreds creds{"server", 40100,        0,        0,
                           nullptr,  "mount-cred", "u-cred", "host_1700000000"};
    LogInfo log_info{nullptr, LogLines::callback};
    std::vector<std::string> no_disks;
    std::vector<std::string> out;
    std::string text = "as before";
    const ec_status status = ixfs_prepare_vmir(creds, no_disks, &log_info, text, out, false);

    require_equal(image.read(), bytes, "configuration file");
    require_equal(clock.sleeps().size(), 0U, "number of waits");
    if (bytes.empty()) {
        require_equal(status, EC_FILE_NOT_READ, "status");
        require_equal(text, "as before", "text");
        return;
    }
    const std::string expected = reference::up_to_nul(bytes);
    require_equal(status, EC_OK, "status");
    require_equal(text, expected, "text");
    require_equal(log.behind("INF - Read file size: "),
                  std::vector<std::string>{std::to_string(bytes.size()) + "\n"}, "logged size");
    require_equal(log.behind("INF - Size after striping padding: "),
                  std::vector<std::string>{std::to_string(expected.size()) + "\n"},
                  "logged size of the text");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Image image;
    check(image, bytes_of(data, size));
    return 0;
}
