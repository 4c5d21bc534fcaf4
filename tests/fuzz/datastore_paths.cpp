// Deriving every path of a VM's disks. The input is the list of their descriptors in datastore
// form, one a line.
#include "check.h"
#include "fuzz_target.h"
#include "log_lines.h"

#include "reference/disk_paths.h"

#include "ixfs_vmir.h"

#include <set>

namespace
{

constexpr std::size_t most_disks = 64;
constexpr char view_folder[] = "backups/host/allusers/full/1700000000/_vmir";

using Entries = std::vector<std::string>;
using Records = std::vector<VmirPath>;

std::vector<std::string> texts(const VmirPath& record)
{
    return {record.datastoreDescPath.text(), record.datastore.text(),
            record.originalDescPath.text(),  record.originalVmdkPath.text(),
            record.baseName.text(),          record.viewDescPath.text(),
            record.viewVmdkPath.text(),      record.datastoreViewDescPath.text()};
}

std::vector<std::string> texts(const reference::DiskPaths& disk)
{
    return {disk.datastore_descriptor,
            disk.datastore,
            disk.original_descriptor,
            disk.original_data,
            disk.base_name,
            disk.view_descriptor,
            disk.view_data,
            disk.datastore_view_descriptor};
}

// The beginning of a failure's message.
std::string message_of(const std::string& failed_step)
{
    return failed_step + ": error code: 20, ";
}

// Runs one way of deriving the list, and returns at which step it failed, or nothing.
template <typename Derive>
std::string failed_step(const LogLines& log, Derive derive)
{
    try {
        derive();
    } catch (const EcStatusException& failure) {
        const std::string message = failure.what();
        require_equal(failure.status, EC_INVALID_PARAMETER, "status of the failure");
        require_equal(log.behind("ERR - Failed to build vmdk paths for file: "),
                      std::vector<std::string>{message + "\n"}, "logged failure");
        const std::string step = message.substr(0, message.find(':'));
        require_equal(message.substr(0, message_of(step).size()), message_of(step), "message");
        return step;
    }
    require_equal(log.behind(""), std::vector<std::string>(), "log lines");
    return "";
}

void require_records(const Records& records, const std::vector<reference::DiskPaths>& expected)
{
    require_equal(records.size(), expected.size(), "number of records");
    for (std::size_t i = 0; i < records.size(); ++i)
        require_equal(texts(records[i]), texts(expected[i]), "paths of a disk");
}

// Each disk by itself, the first that fails being the last.
void derive_one_by_one(_ixfs_control_t* handle, Entries& entries, Records& records)
{
    std::set<LmfString> used_names;
    LmfString view;
    view = view_folder;
    buildVmirPathVectorFromCharArray(entries, records);
    for (VmirPath& record : records)
        populateVmirPath(handle, used_names, view, record);
}

void derive_whole_list(_ixfs_control_t* handle, Entries& entries, Records& records)
{
    LmfString view;
    view = view_folder;
    populateVmirPathVector(handle, entries, view, records);
}

void require_returned_paths(const Records& records)
{
    std::vector<std::string> expected{"there before"};
    for (const VmirPath& record : records)
        expected.push_back(reference::up_to_nul(record.datastoreViewDescPath.text()));
    std::vector<std::string> returned{"there before"};
    convertVmdkPathsListToCharArrays(records, returned);
    require_equal(returned, expected, "returned paths");
}

// No two disks of a derived list may meet in the view folder.
void require_distinct_names(const Records& records)
{
    std::set<std::string> descriptors;
    std::set<std::string> data_files;
    for (const VmirPath& record : records) {
        descriptors.insert(record.viewDescPath.text());
        data_files.insert(record.viewVmdkPath.text());
    }
    require_equal(descriptors.size(), records.size(), "number of descriptors");
    require_equal(data_files.size(), records.size(), "number of data files");
}

void check(Entries entries)
{
    const std::vector<reference::DiskPaths> expected = reference::derive_all(entries, view_folder);
    std::string expected_failure;
    for (const reference::DiskPaths& disk : expected)
        expected_failure += disk.failed_step;

    const Entries entries_before = entries;
    for (const auto derive : {derive_whole_list, derive_one_by_one}) {
        LogLines log;
        const Handle handle = make_handle(log);
        Records records(3); // of an earlier call
        require_equal(failed_step(log, [&] { derive(handle.get(), entries, records); }),
                      expected_failure, "step that fails");
        require_records(records, expected);
        require_equal(entries, entries_before, "the caller's entries");
        require_returned_paths(records);
        if (expected_failure.empty())
            require_distinct_names(records);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    check(split(bytes_of(data, size), "\n", most_disks));
    return 0;
}
