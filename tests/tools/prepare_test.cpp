#include "prepare_test.h"

#include "output_schema.h"
#include "tree_snapshot.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace
{

const fs::path mount_base = "/usr/varnis/var/ixfs";
const fs::path mount_point = mount_base / "media1";
const fs::path image_below = "backups/client/allusers";
const fs::path vm_folder = mount_point / image_below / "full/7/vm";

constexpr char descriptor[] = "# Disk DescriptorFile\n"
                              "RW 2048 VMFS \"disk-flat.vmdk\"\n"
                              "ddb.uuid = \"60 00 C2 9a 00 00 00 00-00 00 00 00 00 00 00 01\"\n";

} // namespace

void write_file(const fs::path& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << bytes << std::flush;
}

const std::string PrepareTest::disk = "[store] backups/client/allusers/full/7/vm/disk.vmdk.desc";
const std::string PrepareTest::view_disk = "[store] backups/client/allusers/full/7/_vmir/disk.vmdk";

PrepareTest::PrepareTest()
{
    options = {{"server", "media1"},
               {"port", "4010"},
               {"schedule", "full"},
               {"backup-id", "client_7"},
               {"disk", disk}};
    use_mount_credential("mount-secret\n");
    use_unmount_credential("unmount-secret\n");
}

void PrepareTest::TearDown()
{
    fs::remove_all(mount_base);
}

std::vector<std::string> PrepareTest::command() const
{
    std::vector<std::string> command{IXFS_PREPARE_PROGRAM};
    for (const auto& [name, value] : options) {
        command.push_back("--" + name);
        if (value.empty())
            command.push_back(value);
        else
            command.back().append("=").append(value);
    }
    command.insert(command.end(), flags.begin(), flags.end());
    return command;
}

ProgramResult PrepareTest::run(const Streams& streams) const
{
    const std::vector<std::string> arguments = command();
    const auto asks_for = [&arguments](const std::string& argument) {
        return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
    };
    ProgramResult result = run_program(arguments, streams);
    if (options.count("from") != 0)
        expect_lines_as_schema_says(result.output);
    else if (asks_for("--json") && !result.output.empty())
        expect_as_schema_says(result.output);
    if (asks_for("--log-format=json") && result.exit_status != bad_usage)
        expect_lines_as_schema_says(result.errors);
    return result;
}

ProgramResult PrepareTest::run_redirected(const std::string& redirection) const
{
    std::vector<std::string> shell{"/bin/sh", "-c", "exec \"$0\" \"$@\" " + redirection};
    const std::vector<std::string> program = command();
    shell.insert(shell.end(), program.begin(), program.end());
    return run_program(shell);
}

void PrepareTest::expect_refusal(const std::string& what, const Streams& streams) const
{
    const ProgramResult result = run(streams);
    EXPECT_EQ(result.exit_status, bad_usage);
    EXPECT_THAT(result.errors, testing::StartsWith("ixfs-prepare: "));
    EXPECT_THAT(result.errors, testing::HasSubstr(what));
    EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("s3cret")));
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(helper.runs(), testing::IsEmpty());
}

ScriptedHelper::Arguments PrepareTest::run_up_to_helper() const
{
    const std::size_t runs_before = helper.runs().size();
    EXPECT_EQ(run().exit_status, 1);
    const std::vector<ScriptedHelper::Arguments> runs = helper.runs();
    EXPECT_EQ(runs.size(), runs_before + 1);
    return runs.empty() ? ScriptedHelper::Arguments{} : runs.back();
}

void PrepareTest::use_mount_credential(const std::string& bytes)
{
    folder.write("mount", bytes);
    options["mount-cred-file"] = folder / "mount";
}

void PrepareTest::use_unmount_credential(const std::string& bytes)
{
    folder.write("unmount", bytes);
    options["unmount-cred-file"] = folder / "unmount";
}

void PrepareTest::use_standard_input()
{
    options.erase("mount-cred-file");
    options.erase("unmount-cred-file");
    flags.emplace_back("--creds-stdin");
}

void PrepareTest::provide_image(const std::string& configuration)
{
    const fs::path time_folder = mount_point / image_below / options.at("schedule") / "7";
    fs::create_directories(time_folder);
    fs::create_directories(vm_folder);
    write_file(time_folder / "^^.^VIRTUAL_FILE_FSMAP", configuration);
    provide_disk("disk");
    helper.answers({{"MOUNTPOINT=" + mount_point.string(), "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
}

void PrepareTest::provide_disk(const std::string& name)
{
    write_file(vm_folder / (name + ".vmdk.desc"), descriptor);
    write_file(vm_folder / (name + ".vmdk"), "data");
}

std::string PrepareTest::read_view_file(const std::string& name) const
{
    return bytes_of(mount_point / image_below / "full/7/_vmir" / name);
}
