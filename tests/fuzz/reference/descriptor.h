// The copy of a disk descriptor, line by line.
#ifndef IXFS_FUZZ_REFERENCE_DESCRIPTOR_H
#define IXFS_FUZZ_REFERENCE_DESCRIPTOR_H

#include "text.h"

#include <string>
#include <vector>

namespace reference
{

struct DescriptorLine {
    enum Kind { copied, extent, uuid } kind;
    std::string text; // as it is written; of a UUID line nothing, since it is random
};

struct DescriptorCopy {
    std::vector<DescriptorLine> lines;
    bool other_extent_type = false; // the first extent is no VMFS one, and the copy ends before it

    int count(DescriptorLine::Kind kind) const
    {
        int found = 0;
        for (const DescriptorLine& line : lines)
            found += line.kind == kind;
        return found;
    }
};

inline DescriptorCopy copy_descriptor(const std::string& old, const std::string& extent_name,
                                      bool new_uuids)
{
    DescriptorCopy copy;
    for (const std::string& line : read_lines(old)) {
        const bool is_extent = copy.count(DescriptorLine::extent) == 0 && starts_with(line, "RW ");
        if (is_extent && !contains(line, " VMFS ")) {
            copy.other_extent_type = true;
            return copy;
        }
        if (is_extent)
            copy.lines.push_back({DescriptorLine::extent, line.substr(0, line.find(" VMFS ")) +
                                                              " VMFS \"" + extent_name + "\"\r\n"});
        else if (new_uuids && starts_with(line, "ddb.uuid "))
            copy.lines.push_back({DescriptorLine::uuid, ""});
        else
            copy.lines.push_back({DescriptorLine::copied, line});
    }
    return copy;
}

} // namespace reference

#endif
