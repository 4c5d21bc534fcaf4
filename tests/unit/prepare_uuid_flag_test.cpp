// When a preparation that wants new disk UUIDs begins to draw them: once the configuration has been
// read, or could not be.
#include "image_test.h"
#include "interpose.h"
#include "record_view.h"

#include <map>
#include <set>
#include <string>

namespace
{

// Asks, at each line of a preparation, whether a descriptor copied now would get a new UUID.
class PrepareUuidFlag : public ImageTest
{
protected:
    PrepareUuidFlag()
    {
        add_disk("a");
        dir.write("old", descriptor("a-flat.vmdk"));
        log_info.log_callback = ask;
        new_disk_uuids = true;
        current = this;
    }
    ~PrepareUuidFlag() override { current = nullptr; }

    ec_status prepare_asking()
    {
        const auto allocation = interpose::on_allocation([this](std::size_t size) {
            if (handle != nullptr || size != record_view::handle_size)
                return std::optional<void*>();
            handle = std::calloc(1, size);
            return std::optional<void*>(handle);
        });
        return prepare();
    }

    // The answers under a function tag; empty where it logged nothing.
    std::set<bool> answers(const std::string& tag) { return found[tag]; }

private:
    static void ask(int, const char* tag, const char*)
    {
        if (current->thread != pthread_self() || current->asking)
            return;
        current->asking = true;
        current->found[tag].insert(current->draws_new_uuids());
        current->asking = false;
    }

    bool draws_new_uuids()
    {
        auto* const control = static_cast<_ixfs_control_t*>(handle);
        const std::string old_path = dir / "old";
        const std::string new_path = dir / "new";
        if (_ixfs_is_invalid(control) != 0) {
            ADD_FAILURE() << "the preparation's handle is not known";
            return false;
        }
        EXPECT_EQ(_ixfs_copy_desc(control, old_path.c_str(), new_path.c_str(), "a-flat.vmdk"), 1);
        return dir.read("new") != dir.read("old");
    }

    static inline PrepareUuidFlag* current = nullptr;
    const pthread_t thread = pthread_self();
    TempDir dir;
    void* handle = nullptr;
    bool asking = false;
    std::map<std::string, std::set<bool>> found;
};

TEST_F(PrepareUuidFlag, IsSetBehindTheConfiguration)
{
    EXPECT_EQ(prepare_asking(), EC_OK);
    for (const char* const tag : {"ixfs_mount()", "makeClientAndBackupTime", "readXml"})
        EXPECT_EQ(answers(tag), std::set<bool>{false}) << tag;
    for (const char* const tag : {"_ixfs_view_lock()", "copyOrLinkPath", "ixfs_unmount()"})
        EXPECT_EQ(answers(tag), std::set<bool>{true}) << tag;
}

TEST_F(PrepareUuidFlag, IsSetWhenTheBackupIdIsMalformed)
{
    creds.backup_id = "no underscore";
    EXPECT_EQ(prepare_asking(), EC_INVALID_PARAMETER);
    EXPECT_EQ(answers("makeClientAndBackupTime"), std::set<bool>{false});
    EXPECT_EQ(answers("ixfs_unmount()"), std::set<bool>{true});
}

TEST_F(PrepareUuidFlag, IsSetWhenTheConfigurationIsEmpty)
{
    write_config("");
    EXPECT_EQ(prepare_asking(), EC_FILE_NOT_READ);
    EXPECT_EQ(answers("readXml"), std::set<bool>{false});
    EXPECT_EQ(answers("ixfs_unmount()"), std::set<bool>{true});
}

TEST_F(PrepareUuidFlag, IsNeverSetUnasked)
{
    new_disk_uuids = false;
    EXPECT_EQ(prepare_asking(), EC_OK);
    for (const char* const tag : {"readXml", "_ixfs_view_lock()", "ixfs_unmount()"})
        EXPECT_EQ(answers(tag), std::set<bool>{false}) << tag;
}

} // namespace
