#include "ixfs_vmir.h"
#include "record_view.h"

#include "handle_test.h"

#include <climits>
#include <cstring>
#include <string>

namespace
{

constexpr long backup_time = 1'700'000'000;
constexpr char refused_schedule[] = "buildImagePath: error code: 223, invalid schedule type";

Line schedule_line(int schedule_type)
{
    return {IXFS_LOG_ERR, "buildImagePath",
            "ERR - Invalid Schedule Type: " + std::to_string(schedule_type) + ".\n"};
}

Line failed_line(const std::string& tag)
{
    return {IXFS_LOG_ERR, tag,
            std::string("ERR - Failed to build image path: ") + refused_schedule + "\n"};
}

// A handle with a mount record that nothing is mounted for.
class ImagePaths : public HandleTest
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(
            ixfs_recreate_minimal_context(handle.get(), "mount", "unmount", 1, "server", 0, ""), 0);
        set_mount_point("/tmp/m");
        log.take();
    }

    void TearDown() override
    {
        if (record_view::has_mount(handle.get()))
            set_mount_point(""); // lets the handle end without a helper run
    }

    void set_mount_point(const char* mount_point)
    {
        record_view::set_mount_point(handle.get(), mount_point);
    }

    ec_status build_path_to_xml(int schedule_type)
    {
        return buildPathToXml(handle.get(), "host", backup_time, schedule_type, path);
    }

    std::string view_path_of(int schedule_type)
    {
        LmfString view_path;
        buildViewPath(handle.get(), "host", backup_time, schedule_type, view_path);
        return view_path.text();
    }

    LmfPathname path;
};

// ---- The image directory

TEST_F(ImagePaths, ImagePathHoldsClientScheduleAndTime)
{
    buildImagePath(handle.get(), "host", backup_time, 0, path);
    EXPECT_EQ(path.text(), "backups/host/allusers/full/1700000000");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(ImagePaths, ImagePathIsAppended)
{
    path.makeFilename("/mnt/a", false);
    buildImagePath(handle.get(), "host", backup_time, 4, path);
    EXPECT_EQ(path.text(), "/mnt/a/backups/host/allusers/incr/1700000000");
}

TEST_F(ImagePaths, TimeIsPlainDecimal)
{
    for (const auto& [time, text] :
         {std::pair(-5L, "-5"), std::pair(0L, "0"), std::pair(LONG_MIN, "-9223372036854775808")}) {
        LmfPathname image_path;
        buildImagePath(handle.get(), "h", time, 1, image_path);
        EXPECT_EQ(image_path.text(), std::string("backups/h/allusers/incr/") + text);
    }
}

TEST_F(ImagePaths, ClientKeepsItsBytes)
{
    buildImagePath(handle.get(), "gr\xfcn host", 1, 0, path);
    EXPECT_EQ(path.text(), "backups/gr\xfcn host/allusers/full/1");
}

TEST_F(ImagePaths, InvalidScheduleThrowsAndKeepsWhatWasAppended)
{
    for (const int schedule_type : {-1, 2, 3, 5, INT_MAX}) {
        SCOPED_TRACE(schedule_type);
        LmfPathname image_path;
        try {
            buildImagePath(handle.get(), "host", backup_time, schedule_type, image_path);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const EcStatusException& exception) {
            EXPECT_EQ(exception.status, 223);
            EXPECT_STREQ(exception.what(), refused_schedule);
        }
        EXPECT_EQ(image_path.text(), "backups/host/allusers");
        EXPECT_EQ(log.take(), (Lines{schedule_line(schedule_type)}));
    }
}

// ---- The VM configuration file

TEST_F(ImagePaths, XmlPathOfAFullImage)
{
    EXPECT_EQ(build_path_to_xml(0), 0);
    const std::string expected =
        "/tmp/m/backups/host/allusers/full/1700000000/^^.^VIRTUAL_FILE_FSMAP";
    EXPECT_EQ(path.text(), expected);
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "buildPathToXml",
                                   "INF - Reading VM Config file from: " + expected + "\n"}}));
}

TEST_F(ImagePaths, XmlPathOfAnIncrementalImage)
{
    for (const int schedule_type : {1, 4}) {
        EXPECT_EQ(build_path_to_xml(schedule_type), 0);
        EXPECT_EQ(path.text(),
                  "/tmp/m/backups/host/allusers/incr/1700000000/^^.^VIRTUAL_FILE_FSMAP");
    }
}

TEST_F(ImagePaths, XmlPathReplacesWhatThePathHeld)
{
    path.makeFilename("/elsewhere", false);
    EXPECT_EQ(build_path_to_xml(0), 0);
    EXPECT_EQ(path.text().substr(0, 15), "/tmp/m/backups/");
}

TEST_F(ImagePaths, XmlPathOfAnInvalidScheduleReturns223)
{
    for (const int schedule_type : {2, -1}) {
        EXPECT_EQ(build_path_to_xml(schedule_type), 223);
        EXPECT_EQ(log.take(), (Lines{schedule_line(schedule_type), failed_line("buildPathToXml")}));
    }
    EXPECT_EQ(ixfs_last_error(handle.get()), 0);
}

TEST_F(ImagePaths, XmlPathWithoutAMountReturns20AndLeavesThePath)
{
    path.makeFilename("before", false);
    _ixfs_no_mount(handle.get(), EC_OK);
    EXPECT_EQ(build_path_to_xml(0), 20);
    EXPECT_EQ(path.text(), "before");
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_ERR, "buildPathToXml",
                                   "ERR - Mount or mount point not found.  Image unmounted?\n"}}));
}

TEST_F(ImagePaths, XmlPathWithAnEmptyMountPointReturns20AndLeavesThePath)
{
    path.makeFilename("before", false);
    set_mount_point("");
    EXPECT_EQ(build_path_to_xml(0), 20);
    EXPECT_EQ(path.text(), "before");
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_ERR, "buildPathToXml",
                                   "ERR - Mount or mount point not found.  Image unmounted?\n"}}));
}

// ---- The view folder

TEST_F(ImagePaths, ViewPathIsRelativeToTheMountPoint)
{
    EXPECT_EQ(view_path_of(1), "backups/host/allusers/incr/1700000000/_vmir");
    EXPECT_EQ(view_path_of(4), "backups/host/allusers/incr/1700000000/_vmir");
    EXPECT_EQ(view_path_of(0), "backups/host/allusers/full/1700000000/_vmir");
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(ImagePaths, ViewPathNeedsNoMount)
{
    _ixfs_no_mount(handle.get(), EC_OK);
    EXPECT_EQ(view_path_of(0), "backups/host/allusers/full/1700000000/_vmir");
}

TEST_F(ImagePaths, ViewPathReplacesTheText)
{
    LmfString view_path("before", LmfString::to_nul, StringConverter::getUtf8CodePage(), 0);
    buildViewPath(handle.get(), "h", 1, 0, view_path);
    EXPECT_EQ(view_path.text(), "backups/h/allusers/full/1/_vmir");
}

TEST_F(ImagePaths, ViewPathOfAnInvalidScheduleThrowsTheSameException)
{
    for (const int schedule_type : {2, -1}) {
        try {
            view_path_of(schedule_type);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const EcStatusException& exception) {
            EXPECT_EQ(exception.status, 223);
            EXPECT_STREQ(exception.what(), refused_schedule);
        }
        EXPECT_EQ(log.take(), (Lines{schedule_line(schedule_type), failed_line("buildViewPath")}));
    }
}

} // namespace
