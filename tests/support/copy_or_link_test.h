// How the files of a VM's one disk get into its view.
#ifndef IXFS_TESTS_COPY_OR_LINK_TEST_H
#define IXFS_TESTS_COPY_OR_LINK_TEST_H

#include "image_test.h"

#include <algorithm>
#include <string>

// A VM with the disk "a".
class CopyOrLinkTest : public ImageTest
{
protected:
    CopyOrLinkTest() { add_disk("a"); }

    static constexpr char tag[] = "copyOrLinkPath";

    void make_view() { mount_point.make_folder(image_path + "/_vmir"); }
    void write_in_view(const std::string& name, const std::string& bytes)
    {
        mount_point.write(view_path(name), bytes);
    }

    // What was logged of the disk, up to where the view was found to have failed, if it was.
    Lines disk_lines() const
    {
        const Lines lines = image_lines();
        const auto begins = [this](const Line& line) {
            return line == exists_line(desc_path) || line == no_source_line(desc_path);
        };
        const auto ends = [](const Line& line) {
            return line.tag == "copyAndLinkOneVmirPath";
        };
        const auto begin = std::find_if(lines.begin(), lines.end(), begins);
        const auto end = std::find_if(begin, lines.end(), ends);
        return Lines(begin, end);
    }

    static Line no_source_line(const std::string& path)
    {
        return {IXFS_LOG_ERR, tag,
                "ERR - Failed to find source file for copy/link: " + path + "\n"};
    }

    const std::string desc_path = in_image("vm/a.vmdk.desc");
    const std::string data_path = in_image("vm/a.vmdk");
    const std::string view_desc_path = in_view("a.vmdk");
    const std::string view_data_path = in_view("a-flat.vmdk");

    Line not_linked_line(int error) const
    {
        return {IXFS_LOG_ERR, "_ixfs_create_hard_link()",
                "ERR - Could not create link " + data_path + " to " + view_data_path + " - " +
                    std::to_string(error) + "\n"};
    }

    const Line reused_line{IXFS_LOG_INF, tag,
                           "INF - File already exists, reusing: " + view_data_path + "\n"};
    const Line make_link_line{IXFS_LOG_INF, tag, "INF - makeLink? 1\n"};
    const Line make_copy_line{IXFS_LOG_INF, tag, "INF - makeLink? 0\n"};
    const Line link_made_line{IXFS_LOG_INF, tag,
                              "INF - Created link file: " + view_data_path + "\n"};
    const Line link_failed_line{
        IXFS_LOG_ERR, tag, "ERR - Could not create link for " + view_data_path + ", error 11\n"};
    const Line copy_failed_line{IXFS_LOG_ERR, tag,
                                "ERR - Failed copying Disk Descriptor (14): from " + desc_path +
                                    " to " + view_desc_path + "\n"};
};

#endif
