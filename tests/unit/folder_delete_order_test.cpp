// A folder's last line comes when all is done: the folder is closed, and errno is still the
// removal's.
#include "handle_test.h"
#include "interpose.h"
#include "process_state.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

using Messages = std::vector<std::string>;

// How many of this process's descriptors refer to a folder, which may be gone.
long descriptors_of(const std::string& folder)
{
    const std::vector<std::string> open = open_descriptors();
    return std::count(open.begin(), open.end(), folder) +
           std::count(open.begin(), open.end(), folder + " (deleted)");
}

// Notes each message that ends the work on a folder, and whether that folder is open then.
class FolderDeleteOrder : public testing::Test
{
protected:
    FolderDeleteOrder()
    {
        dir.make_folder("d/s");
        current = this;
    }
    ~FolderDeleteOrder() override { current = nullptr; }

    int remove() { return _ixfs_folder_delete(handle.get(), (dir / "d").c_str()); }

    std::string removed(const std::string& name) const
    {
        return "INF - Removed directory: " + dir / name + "\n";
    }

    std::string not_removed(const std::string& name, int error) const
    {
        return "ERR - Unable to remove directory: " + dir / name +
               ", error = " + std::to_string(error) + "\n";
    }

    TempDir dir;
    Messages ends;
    Messages ends_of_open_folders;
    Handle handle{ixfs_init(0, nullptr, note, nullptr, nullptr)};

private:
    static void note(int, const char*, const char* text)
    {
        const std::string message = text;
        for (const std::string name : {"d", "d/s"}) {
            const std::string folder = current->dir / name;
            if (message != current->removed(name) &&
                message.find("Unable to remove directory: " + folder + ",") == std::string::npos)
                continue;
            current->ends.push_back(message);
            if (descriptors_of(folder) != 0)
                current->ends_of_open_folders.push_back(message);
        }
    }

    static inline FolderDeleteOrder* current = nullptr;
};

TEST_F(FolderDeleteOrder, FolderIsClosedBeforeItsRemovalIsLogged)
{
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(ends, (Messages{removed("d/s"), removed("d")}));
    EXPECT_EQ(ends_of_open_folders, Messages{});
}

TEST_F(FolderDeleteOrder, FolderIsClosedBeforeItsFailureIsLogged)
{
    dir.write("d/s/stays", "");
    const auto unlink = interpose::on_unlink([](const char* path) -> std::optional<int> {
        if (std::string(path).find("stays") == std::string::npos)
            return std::nullopt;
        errno = EACCES;
        return -1;
    });
    EXPECT_EQ(remove(), 1);
    EXPECT_EQ(ends, Messages{not_removed("d", ENOTEMPTY)});
    EXPECT_EQ(ends_of_open_folders, Messages{});
}

TEST_F(FolderDeleteOrder, ClosingDoesNotHideWhyAFolderStays)
{
    const auto rmdir = interpose::on_rmdir.fails(EBUSY);
    const auto closedir = interpose::on_closedir([](DIR* folder) -> std::optional<int> {
        const int result = ::closedir(folder);
        errno = EXDEV;
        return result;
    });
    const auto close = interpose::on_close([](int descriptor) -> std::optional<int> {
        const int result = ::close(descriptor);
        errno = EXDEV;
        return result;
    });
    EXPECT_EQ(remove(), 1);
    EXPECT_EQ(ends, (Messages{not_removed("d/s", EBUSY), not_removed("d", EBUSY)}));
    EXPECT_GE(closedir.calls() + close.calls(), 2);
}

} // namespace
