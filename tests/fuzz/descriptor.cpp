// Copying a disk descriptor. The input is the descriptor.
#include "check.h"
#include "fuzz_target.h"
#include "log_lines.h"
#include "memory_file.h"

#include "reference/descriptor.h"

#include <regex>

namespace
{

using reference::DescriptorLine;

constexpr char extent_name[] = "vm1-flat.vmdk";

// Takes a rewritten UUID line off the front of `text` and returns its UUID.
std::string take_uuid(std::string& text)
{
    static const std::regex line(
        "ddb\\.uuid = \"((?:[0-9a-f]{2} ){7}[0-9a-f]{2}-(?:[0-9a-f]{2} ){7}[0-9a-f]{2})\"\r\n");
    constexpr std::size_t line_size = 62;
    std::smatch match;
    const std::string front = text.substr(0, line_size);
    if (!std::regex_match(front, match, line))
        fail("a UUID line is " + shown(front));
    text.erase(0, line_size);
    return match[1];
}

// Checks a copy byte by byte and returns the new UUIDs in it.
std::vector<std::string> check_content(std::string copy, const reference::DescriptorCopy& expected)
{
    std::vector<std::string> uuids;
    for (const DescriptorLine& line : expected.lines) {
        if (line.kind == DescriptorLine::uuid) {
            uuids.push_back(take_uuid(copy));
            continue;
        }
        require_equal(copy.substr(0, line.text.size()), line.text, "a line of the copy");
        copy.erase(0, line.text.size());
    }
    require_equal(copy, std::string(), "what stands behind the last line");
    return uuids;
}

std::vector<std::string> expected_errors(const reference::DescriptorCopy& expected)
{
    std::vector<std::string> errors;
    if (expected.other_extent_type)
        errors.emplace_back("didn't find VMFS keyword\n");
    if (expected.count(DescriptorLine::extent) == 0)
        errors.emplace_back("failed to find and alter RW tag?!?\n");
    return errors;
}

void check_log(const LogLines& log, const reference::DescriptorCopy& expected,
               const std::vector<std::string>& uuids)
{
    const int extents = expected.count(DescriptorLine::extent);
    require(extents <= 1, "only one extent line is rewritten");
    require_equal(log.behind("ERR - "), expected_errors(expected), "errors");
    require_equal(log.behind("INF - New extent description: "),
                  std::vector<std::string>(static_cast<std::size_t>(extents),
                                           std::string(extent_name) + "\n"),
                  "logged extents");
    std::vector<std::string> logged_uuids;
    for (const std::string& uuid : uuids)
        logged_uuids.push_back(uuid + "\n");
    require_equal(log.behind("INF - New uuid: "), logged_uuids, "logged UUIDs");
}

void check(const MemoryFile& old_file, const MemoryFile& new_file, const std::string& old,
           int flags)
{
    const reference::DescriptorCopy expected =
        reference::copy_descriptor(old, extent_name, flags == IXFS_FLAG_NEW_DISK_UUID);
    LogLines log;
    const Handle handle = make_handle(log, flags);
    old_file.write(old);
    new_file.write("an earlier copy, longer or shorter than the one that replaces it");

    const int result = _ixfs_copy_desc(handle.get(), old_file.path().c_str(),
                                       new_file.path().c_str(), extent_name);

    require_equal(result, expected.count(DescriptorLine::extent), "result");
    require_equal(old_file.read(), old, "old descriptor");
    check_log(log, expected, check_content(new_file.read(), expected));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const MemoryFile old_file;
    static const MemoryFile new_file;
    for (const int flags : {0, static_cast<int>(IXFS_FLAG_NEW_DISK_UUID)})
        check(old_file, new_file, bytes_of(data, size), flags);
    return 0;
}
