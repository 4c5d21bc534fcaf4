// Whole preparations of a VM on an image that is really mounted, judged by software that knows
// nothing of the library.
#include "interpose.h"
#include "loopback_test.h"
#include "program.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <future>
#include <set>

#include <sys/mount.h>

namespace fs = std::filesystem;

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

// A disk of the sample VM, by its names in the image directory and in the view.
struct SampleDisk {
    std::string original;
    std::string in_view;
};

const std::vector<SampleDisk> sample_disks = {
    {"vm1/disk", "disk"}, {"vm1_1/disk", "disk(1)"}, {"vm1/data-000001", "data"}};

// The value behind `key` and its quote, to the next quote.
std::string value_of(const std::string& descriptor, const std::string& key)
{
    const std::size_t begin = descriptor.find(key) + key.size();
    EXPECT_GE(begin, key.size()) << key << " is missing";
    return descriptor.substr(begin, descriptor.find('"', begin) - begin);
}

class PrepareOnMount : public LoopbackTest
{
protected:
    ec_status prepare() { return prepare(server); }

    ec_status prepare(const SampleServer& from)
    {
        MountCreds creds = creds_of(from);
        creds.schedule_type = schedule_type;
        LogInfo log_info{nullptr, LogRecorder::callback};
        std::vector<std::string> disks = from.disks;
        out.clear();
        return ixfs_prepare_vmir(creds, disks, &log_info, config, out, new_disk_uuids);
    }

    // The same by another process.
    ProgramResult prepare_elsewhere() const
    {
        std::vector<std::string> command = {IXFS_PREPARE_PROGRAM,
                                            "--server=" + server.name,
                                            "--port=" + std::to_string(port),
                                            "--schedule=full",
                                            "--timeout=30",
                                            "--backup-id=" + server.backup_id,
                                            "--new-disk-uuids",
                                            "--quiet",
                                            "--creds-stdin"};
        for (const std::string& disk : server.disks)
            command.push_back("--disk=" + disk);
        return run_program(command, {std::string(mount_cred) + "\n" + unmount_cred + "\n"});
    }

    std::string in_image(const std::string& name) const
    {
        return server.root + "/" + server.image + "/" + name;
    }
    std::string in_view(const std::string& name) const { return in_image("_vmir/" + name); }

    // Expects that the view holds each disk of the VM, as its original but for the names, and that
    // nothing else of the image changed.
    void expect_whole_view() const;
    void expect_equal_disk(const SampleDisk& disk) const;

    int schedule_type = 0;
    bool new_disk_uuids = true;
    std::string config;
    std::vector<std::string> out;
};

void PrepareOnMount::expect_whole_view() const
{
    const std::string view = server.image + "/_vmir";
    EXPECT_THAT(content.changes(), ElementsAre(view, view + "/data-flat.vmdk", view + "/data.vmdk",
                                               view + "/disk(1)-flat.vmdk", view + "/disk(1).vmdk",
                                               view + "/disk-flat.vmdk", view + "/disk.vmdk"));
    for (const SampleDisk& disk : sample_disks)
        expect_equal_disk(disk);
}

void PrepareOnMount::expect_equal_disk(const SampleDisk& disk) const
{
    const std::string original = in_image(disk.original + ".vmdk");
    const std::string descriptor = in_view(disk.in_view + ".vmdk");
    EXPECT_TRUE(fs::equivalent(original, in_view(disk.in_view + "-flat.vmdk")));

    const ProgramResult info =
        run_program({IXFS_QEMU_IMG, "info", "--output=json", "-f", "vmdk", descriptor});
    ASSERT_EQ(info.exit_status, 0) << info.errors;
    EXPECT_EQ(nlohmann::json::parse(info.output).at("virtual-size"), SampleServer::disk_size);

    const ProgramResult compared =
        run_program({IXFS_QEMU_IMG, "compare", "-f", "vmdk", "-F", "raw", descriptor, original});
    EXPECT_EQ(compared.exit_status, 0) << compared.output << compared.errors;
}

TEST_F(PrepareOnMount, MakesDisksThatOpenAsTheOriginals)
{
    ASSERT_EQ(prepare(), EC_OK);
    expect_whole_view();
    const std::string view = "[nfs_ds] " + server.image + "/_vmir/";
    EXPECT_THAT(out, ElementsAre(view + "disk.vmdk", view + "disk(1).vmdk", view + "data.vmdk"));
    EXPECT_THAT(config, StartsWith("<?xml "));
    EXPECT_THAT(config, EndsWith("</VirtualMachine>\n")) << "without the padding";
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server), unmount_call(server)));
    EXPECT_FALSE(fs::exists(server.mount_point));
}

TEST_F(PrepareOnMount, GivesEachDiskAnIdentityOfItsOwn)
{
    ASSERT_EQ(prepare(), EC_OK);
    std::set<std::string> identities;
    for (const SampleDisk& disk : sample_disks) {
        for (const std::string& file :
             {in_image(disk.original + ".vmdk.desc"), in_view(disk.in_view + ".vmdk")})
            identities.insert(value_of(bytes_of(file), "ddb.uuid = \""));
    }
    EXPECT_EQ(identities.size(), 2 * sample_disks.size());
}

TEST_F(PrepareOnMount, KeepsTheIdentitiesWhenNotAskedForNewOnes)
{
    new_disk_uuids = false;
    ASSERT_EQ(prepare(), EC_OK);
    expect_whole_view();
    for (const SampleDisk& disk : sample_disks) {
        const std::string extent = " VMFS \"";
        std::string expected = bytes_of(in_image(disk.original + ".vmdk.desc"));
        const std::size_t begin = expected.find(extent) + extent.size();
        expected.replace(begin, expected.find('\n', begin) - begin,
                         disk.in_view + "-flat.vmdk\"\r");
        EXPECT_EQ(bytes_of(in_view(disk.in_view + ".vmdk")), expected);
    }
}

TEST_F(PrepareOnMount, ReusesFolderAndLinksAndRenewsDescriptors)
{
    ASSERT_EQ(prepare(), EC_OK);
    const TreeSnapshot first(in_image("_vmir"));
    ASSERT_EQ(prepare(), EC_OK);
    EXPECT_THAT(first.changes(), ElementsAre("data.vmdk", "disk(1).vmdk", "disk.vmdk"));
    expect_whole_view();
    EXPECT_THAT(log.with_tag("makeViewFolder"),
                ElementsAre(Line{IXFS_LOG_INF, "makeViewFolder",
                                 "INF - Using existing folder for view: " + server.mount_point +
                                     "/" + server.image + "/_vmir\n"}));
}

TEST_F(PrepareOnMount, FindsAnIncrementalBackup)
{
    const SampleServer incremental("incremental", "incr");
    schedule_type = 1;
    ASSERT_EQ(prepare(incremental), EC_OK);
    EXPECT_THAT(out, Each(StartsWith("[nfs_ds] backups/sample-client/allusers/incr/")));
    EXPECT_TRUE(fs::exists(incremental.root + "/" + incremental.image + "/_vmir/disk.vmdk"));
}

TEST_F(PrepareOnMount, ChangesNothingOnAReadOnlyMount)
{
    const char* const root = server.root.c_str();
    ASSERT_EQ(::mount(root, root, nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(::mount(nullptr, root, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(prepare(), EC_FOLDER_NOT_CREATED);
    EXPECT_THAT(content.changes(), IsEmpty());
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(config, Not(IsEmpty())) << "was read before";
}

TEST_F(PrepareOnMount, FailsWithTheMountAndChangesNothing)
{
    loopback.steer("mount", "status", "42");
    EXPECT_EQ(prepare(), EC_HELPER_FAILED);
    EXPECT_THAT(content.changes(), IsEmpty());
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server)));
}

TEST_F(PrepareOnMount, KeepsTheImageWhenTheMountStaysInPlace)
{
    loopback.steer("umount", "keep");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(server.mounts(), 1);
    umount2(server.mount_point.c_str(), MNT_DETACH);
    expect_whole_view();
}

TEST_F(PrepareOnMount, SeveralProcessesAtOnceAllSucceed)
{
    std::vector<std::future<ProgramResult>> results(4);
    for (auto& result : results)
        result = std::async(std::launch::async, [this] { return prepare_elsewhere(); });
    for (auto& result : results) {
        const ProgramResult prepared = result.get();
        EXPECT_EQ(prepared.exit_status, 0) << prepared.errors;
    }
    expect_whole_view();
    EXPECT_THAT(loopback.overlaps(), IsEmpty());
}

TEST_F(PrepareOnMount, AnotherProcessMayMakeTheSameLinkFirst)
{
    ProgramResult other{-1, {}, {}};
    const auto link = interpose::on_link([&](const char*, const char*) -> std::optional<int> {
        if (other.exit_status == -1)
            other = prepare_elsewhere();
        return std::nullopt;
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(other.exit_status, 0) << other.errors;
    expect_whole_view();
}

} // namespace
