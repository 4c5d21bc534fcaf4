// Long paths, on each operation on files. None is cut; what the kernel does not take fails.
#include "bounds.h"
#include "file_lines.h"
#include "handle_test.h"
#include "temp_dir.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>

namespace
{

namespace fs = std::filesystem;

class PathBounds : public HandleTest, public testing::WithParamInterface<unsigned int>
{
protected:
    // Whether the kernel takes a path of the length.
    static bool is_usable(const std::string& name) { return name.size() <= bounds::longest_path; }

    // The path, with a file or folder there if there can be one.
    const std::string& with_file(const std::string& name) const
    {
        if (is_usable(name)) {
            fs::create_directories(fs::path(name).parent_path());
            dir.write(name.substr(dir.path().size() + 1), "RW 1 VMFS \"old\"\n");
        }
        return name;
    }

    static const std::string& with_folder(const std::string& name)
    {
        if (is_usable(name))
            fs::create_directories(name);
        return name;
    }

    static Line failure(const char* tag, const std::string& message)
    {
        return {IXFS_LOG_ERR, tag, "ERR - " + message + "\n"};
    }

    TempDir dir;
    const std::string path = bounds::path(GetParam(), dir.path());
    const bool usable = is_usable(path);
};

constexpr char copy_tag[] = "_ixfs_copy_desc()";
const std::string too_long = std::to_string(ENAMETOOLONG);

TEST_P(PathBounds, FileExists)
{
    with_file(path);
    EXPECT_EQ(_ixfs_file_exists(handle.get(), path.c_str()), usable ? 1 : 0);
    const Line expected = usable
                              ? exists_line(path)
                              : failure("_ixfs_file_exists()",
                                        "ACE_OS::access(" + path + ") failed, error = " + too_long);
    EXPECT_EQ(log.take(), bounds::as_logged({expected}));
}

TEST_P(PathBounds, FolderIsCreatedBelowABase)
{
    with_folder(path);
    const std::string folder = path + "/new";
    uint32_t segments = 0;
    const int result = _ixfs_folder_create(handle.get(), path.c_str(), "new", &segments, 0755);
    EXPECT_EQ(result, is_usable(folder) ? 0 : 1);
    EXPECT_EQ(is_usable(folder) && fs::is_directory(folder), is_usable(folder));
    if (is_usable(folder)) {
        EXPECT_EQ(log.take(), bounds::as_logged(folder_created_lines(path, "new", 1)));
    }
}

TEST_P(PathBounds, FolderOfManySegmentsIsCreated)
{
    const std::string folder = path.substr(dir.path().size() + 1);
    const auto missing = static_cast<int>(std::count(folder.begin(), folder.end(), '/')) + 1;
    uint32_t segments = 0;
    const int result =
        _ixfs_folder_create(handle.get(), dir.path().c_str(), folder.c_str(), &segments, 0755);
    EXPECT_EQ(result, usable ? 0 : 1);
    if (usable) {
        EXPECT_TRUE(fs::is_directory(path));
        EXPECT_EQ(log.take(), bounds::as_logged(folder_created_lines(dir.path(), folder, missing)));
    }
}

TEST_P(PathBounds, FolderOfOneSegmentIsTooLong)
{
    const std::string folder = bounds::text(GetParam());
    uint32_t segments = 0;
    EXPECT_EQ(
        _ixfs_folder_create(handle.get(), dir.path().c_str(), folder.c_str(), &segments, 0755), 1);
    const Line expected{IXFS_LOG_INF, "_ixfs_folder_create()",
                        "ERR - ACE_OS::mkdir(): Could not create Parent (" + (dir / folder) +
                            "), error: " + too_long + "\n"};
    EXPECT_EQ(log.lines().back(), bounds::as_logged({expected}).front());
}

TEST_P(PathBounds, ExistingFileIsLinked)
{
    with_file(path);
    const std::string link = dir / "link";
    EXPECT_EQ(_ixfs_create_hard_link(handle.get(), path.c_str(), link.c_str()),
              usable ? 1 : ENAMETOOLONG);
    EXPECT_EQ(fs::exists(link), usable);
    const Line failed = failure("_ixfs_create_hard_link()",
                                "Could not create link " + path + " to " + link + " - " + too_long);
    EXPECT_EQ(log.take(), usable ? Lines{} : bounds::as_logged({failed}));
}

TEST_P(PathBounds, LinkIsMade)
{
    with_file(path);
    if (usable)
        fs::remove(path);
    const std::string existing = with_file(dir / "existing");
    EXPECT_EQ(_ixfs_create_hard_link(handle.get(), existing.c_str(), path.c_str()),
              usable ? 1 : ENAMETOOLONG);
    EXPECT_EQ(usable && fs::exists(path), usable);
}

TEST_P(PathBounds, FolderIsDeleted)
{
    with_folder(path);
    EXPECT_EQ(_ixfs_folder_delete(handle.get(), path.c_str()), usable ? 0 : 1);
    const Line expected =
        usable ? removed_folder_line(path)
               : failure("_ixfs_folder_delete()",
                         "ACE_OS::opendir(" + path + ") failed, error = " + too_long);
    EXPECT_EQ(log.take(), bounds::as_logged({expected}));
    if (usable) {
        EXPECT_FALSE(fs::exists(path));
        EXPECT_TRUE(fs::exists(fs::path(path).parent_path()));
    }
}

TEST_P(PathBounds, DescriptorIsCopied)
{
    with_file(path);
    const std::string copy = dir / "copy";
    EXPECT_EQ(_ixfs_copy_desc(handle.get(), path.c_str(), copy.c_str(), "new"), usable ? 1 : 0);
    EXPECT_EQ(fs::exists(copy), usable);
    const Line expected = usable
                              ? Line{IXFS_LOG_INF, copy_tag, "INF - New extent description: new\n"}
                              : failure(copy_tag, "can't open old " + path + ", err " + too_long);
    EXPECT_EQ(log.take(), bounds::as_logged({expected}));
}

TEST_P(PathBounds, DescriptorIsWritten)
{
    const std::string old_path = with_file(dir / "old");
    with_file(path);
    EXPECT_EQ(_ixfs_copy_desc(handle.get(), old_path.c_str(), path.c_str(), "new"), usable ? 1 : 0);
    const Line expected = usable
                              ? Line{IXFS_LOG_INF, copy_tag, "INF - New extent description: new\n"}
                              : failure(copy_tag, "can't open new " + path + ", err " + too_long);
    EXPECT_EQ(log.take(), bounds::as_logged({expected}));
    if (usable) {
        EXPECT_EQ(dir.read(path.substr(dir.path().size() + 1)), "RW 1 VMFS \"new\"\r\n");
    }
}

TEST_P(PathBounds, ExtentNameIsCutTo1023Bytes)
{
    const std::string old_path = with_file(dir / "old");
    const std::string name = bounds::text(GetParam());
    EXPECT_EQ(_ixfs_copy_desc(handle.get(), old_path.c_str(), (dir / "copy").c_str(), name.c_str()),
              1);
    EXPECT_EQ(dir.read("copy"), "RW 1 VMFS \"" + bounds::as_text(name) + "\"\r\n");
}

INSTANTIATE_TEST_SUITE_P(, PathBounds, bounds::lengths, bounds::length_name);

} // namespace
