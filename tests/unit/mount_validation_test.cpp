// One look into a mount.
#include "mount_fixture.h"
#include "record_view.h"

#include <cstring>
#include <filesystem>
#include <string>

namespace
{

// With a mount that nobody has looked into yet.
class MountValidation : public MountTest
{
protected:
    void SetUp() override { given_mount(mounts_image()); }

    int validate()
    {
        return _ixfs_mount_validate(handle.get(), record_view::mount_of(handle.get()));
    }
};

TEST_F(MountValidation, FindsBackups)
{
    EXPECT_EQ(validate(), 1);
    EXPECT_EQ(log.lines(), Lines{line_of_validation(image.path())});
}

TEST_F(MountValidation, TakesAFileForBackupsToo)
{
    std::filesystem::remove(image / "backups");
    image.write("backups", "");
    EXPECT_EQ(validate(), 1);
}

TEST_F(MountValidation, FailsWithoutBackups)
{
    std::filesystem::remove(image / "backups");
    EXPECT_EQ(validate(), 0);
    EXPECT_EQ(log.lines(), Lines{line_of_validation(image.path())} +
                               validate_says.error("ERR - ACE_OS::stat(" + image.path() +
                                                   "/backups) failed, error = 2"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK) << "a validation records nothing";
}

TEST_F(MountValidation, FailsWhenTheServerDoesNotAnswer)
{
    const auto stat = interpose::on_stat.fails(ETIME);
    EXPECT_EQ(validate(), 0);
    EXPECT_EQ(stat.calls(), 1);
    EXPECT_EQ(log.lines(), Lines{line_of_validation(image.path())} +
                               validate_says.error("ERR - ACE_OS::stat(" + image.path() +
                                                   "/backups) failed, error = 62"));
}

TEST_F(MountValidation, WithoutHandleOrRecordFailsWithoutAWord)
{
    EXPECT_EQ(_ixfs_mount_validate(nullptr, record_view::mount_of(handle.get())), 0);
    EXPECT_EQ(_ixfs_mount_validate(handle.get(), nullptr), 0);
    EXPECT_EQ(_ixfs_mount_validate(nullptr, nullptr), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(MountValidation, CutsAPathThatIsTooLong)
{
    const std::string longest(1023, 'm');
    record_view::set_mount_point(handle.get(), longest);
    EXPECT_EQ(validate(), 0);
    Line looking =
        validate_says.info("INF - Validating name: " + longest + ", mount_point: " + longest);
    looking.message.resize(2047);
    EXPECT_EQ(log.lines(), Lines{looking} + validate_says.error("ERR - ACE_OS::stat(" + longest +
                                                                ") failed, error = 36"));
}

} // namespace
