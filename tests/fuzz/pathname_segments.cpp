// Joining and splitting paths, and creating the folders of one. The input is two lines: a base and
// a folder below it.
#include "check.h"
#include "fuzz_target.h"
#include "interpose.h"
#include "log_lines.h"

#include "reference/pathname.h"
#include "reference/text.h"

#include "lmf_pathname.h"

#include <algorithm>

namespace
{

const char* segment(const LmfPathname& path, long index)
{
    return path.segments()->getSegment(index, nullptr, nullptr);
}

void check_segments(const LmfPathname& path)
{
    const std::vector<std::string> expected = reference::segments(path.text());
    require(path.segments() == nullptr, "segments are absent until they are made");
    path.makeSegments();
    const long count = path.segments()->count();
    require_equal(count, static_cast<long>(expected.size()), "number of segments");

    const std::vector<std::string> prefixes = reference::prefixes(path.text());
    LmfPathname joined;
    for (long i = 1; i <= count; ++i) {
        const auto position = static_cast<std::size_t>(i) - 1;
        require_equal(std::string(segment(path, i)), expected[position], "segment");
        joined.makeFilename(segment(path, i), true);
        require_equal(joined.text(), prefixes[position], "segments joined so far");
    }
    for (const long none : {0L, count + 1, -2L})
        require(segment(path, none) == nullptr, "no segment outside the list");
    require(segment(path, -1) == (count > 0 ? segment(path, count) : nullptr), "last segment");
    require_equal(reference::segments(joined.text()), expected, "segments of the joined path");
}

bool is_root(const std::string& path)
{
    return !path.empty() && path.find_first_not_of('/') == std::string::npos;
}

// Creates the folders of a path, none of which is there, and asks for none in earnest.
void check_folders(const std::string& base, const std::string& folder)
{
    const std::string path = reference::join(base, folder);
    if (path.rfind("/proc/self/fd/", 0) == 0)
        return; // a hook is told what such a path means, not how it was given
    std::vector<std::string> expected = reference::prefixes(path);
    const bool all_are_missing = is_root(base) && !is_root(path);
    if (!expected.empty() && !all_are_missing)
        expected.erase(expected.begin()); // the first segment is there

    LogLines log;
    const Handle handle = make_handle(log);
    std::vector<std::string> made;
    const auto mkdir = interpose::on_mkdir([&](const char* made_path, mode_t mode) {
        require_equal(mode, 0750U, "mode");
        made.emplace_back(made_path);
        return std::optional<int>(0);
    });
    uint32_t segments = 7;
    require_equal(_ixfs_folder_create(handle.get(), base.c_str(), folder.c_str(), &segments, 0750),
                  0, "result of the folders' creation");
    require_equal(made, expected, "folders");
    require_equal(segments, 7 + expected.size(), "segment counter");
}

void check(const std::string& base, const std::string& folder)
{
    LmfPathname path;
    path.makeFilename(base.c_str(), false);
    path.makeFilename(folder.c_str(), true);
    require_equal(path.text(), reference::join(base, folder), "joined path");
    require_equal(std::string(path.display_str()), path.text(), "displayed path");
    check_segments(path);
    check_folders(base, folder);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input = bytes_of(data, size);
    const std::size_t newline = std::min(input.find('\n'), input.size());
    check(reference::up_to_nul(input.substr(0, newline)),
          newline < input.size() ? reference::up_to_nul(input.substr(newline + 1)) : "");
    return 0;
}
