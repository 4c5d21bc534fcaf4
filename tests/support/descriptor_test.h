// One disk descriptor, and the call that copies it.
#ifndef IXFS_TESTS_DESCRIPTOR_TEST_H
#define IXFS_TESTS_DESCRIPTOR_TEST_H

#include "handle_test.h"
#include "process_state.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <string>

class DescriptorTest : public HandleTest
{
protected:
    // Copies a descriptor of these bytes to "new". The copy names `extent` as its data file.
    int copy(const std::string& bytes, const std::string& extent = "vm1-flat.vmdk")
    {
        dir.write("old", bytes);
        return copy_file(dir / "old", dir / "new", extent);
    }

    int copy_file(const std::string& old_path, const std::string& new_path,
                  const std::string& extent = "vm1-flat.vmdk")
    {
        return _ixfs_copy_desc(handle.get(), old_path.c_str(), new_path.c_str(), extent.c_str());
    }

    // What the copy holds.
    std::string copied() const { return dir.read("new"); }

    static Line error(const std::string& message)
    {
        return {IXFS_LOG_ERR, "_ixfs_copy_desc()", "ERR - " + message + "\n"};
    }

    static Line extent_line(const std::string& extent = "vm1-flat.vmdk")
    {
        return {IXFS_LOG_INF, "_ixfs_copy_desc()",
                "INF - New extent description: " + extent + "\n"};
    }

    // An extent line and its rewritten form.
    const std::string old_extent = "RW 2048 VMFS \"vm-flat.vmdk\"\n";
    const std::string new_extent = "RW 2048 VMFS \"vm1-flat.vmdk\"\r\n";

    const Line no_extent_line = error("failed to find and alter RW tag?!?");
    const Line no_keyword_line = error("didn't find VMFS keyword");

    NoDescriptorsLeft no_descriptors_left;
    TempDir dir;
};

#endif
