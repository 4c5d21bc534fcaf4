// Images that change while they are prepared.
#include "hostile_image.h"

#include "attacker.h"
#include "cycle_count.h"
#include "image_statuses.h"
#include "touch_watch.h"

#include <filesystem>

#include <sys/stat.h>

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace
{

using Decoys = std::vector<std::function<void(const std::string&)>>;

class AttackerLosesRace : public HostileImage
{
protected:
    // Prepares again and again while the attacker is at work. Whatever comes of each preparation,
    // it ends, and nothing of the host is touched or given away; and when all is over the backup's
    // files are what they were.
    void run(
        const Attacker::Step& step, const std::function<void()>& after_each = [] {});

    // Expects of a view that was made that it has the image's own disks.
    void expect_own_disk() const;

    Decoys things(const std::string& target) const;
    void forget_view() const { plant::nothing(at("_vmir")); }

    const std::string spare = at("spare");
    const std::string outer_spare = in_root("spare");
    int status = -1; // of the latest preparation

private:
    static ino_t inode_of(const std::string& path);

    const ino_t data_ = inode_of(at("vm/a.vmdk"));
};

// Links out of the image to that target, and things that make readers wait or read for ever.
Decoys AttackerLosesRace::things(const std::string& target) const
{
    Decoys decoys = {[target](const std::string& path) { plant::link(path, target); }, plant::fifo};
    if (plant::can_make_devices())
        decoys.emplace_back(plant::device);
    return decoys;
}

ino_t AttackerLosesRace::inode_of(const std::string& path)
{
    struct stat status {
    };
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

void AttackerLosesRace::run(const Attacker::Step& step, const std::function<void()>& after_each)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(cycle_count(1));
    const ExactSnapshot before(host.path(), ExactSnapshot::Of::host);
    const ExactSnapshot backup(in_root(""), ExactSnapshot::Of::backup);
    const TouchWatch watch(host.path());
    Attacker attacker(step);
    int preparations = 0;
    for (; std::chrono::steady_clock::now() < end && !HasFailure(); ++preparations) {
        log.take();
        const Attempt attempt = prepare_elsewhere(order, std::chrono::seconds(20));
        ASSERT_FALSE(attempt.hung);
        EXPECT_EQ(attempt.exit_status, 0);
        EXPECT_EQ(attempt.descriptors_left, 0);
        EXPECT_EQ(image_statuses.count(attempt.status), 1U) << attempt.status;
        EXPECT_THAT(attempt.config, Not(HasSubstr(secret_text))) << "given to the caller";
        EXPECT_THAT(watch.touched(), IsEmpty()) << "of the host";
        status = attempt.status;
        after_each();
    }
    EXPECT_EQ(attacker.stop(), 0);
    RecordProperty("preparations", preparations);
    EXPECT_THAT(before.changes(), IsEmpty()) << "of the host";
    for (const std::string& decoy : {spare, outer_spare})
        plant::nothing(decoy);
    EXPECT_THAT(backup.changes(), IsEmpty()) << "of the backup";
}

void AttackerLosesRace::expect_own_disk() const
{
    if (status != EC_OK)
        return;
    EXPECT_THAT(bytes_of(in_view("a.vmdk")), Not(HasSubstr(secret_text))) << "copied";
    EXPECT_EQ(inode_of(in_view("a-flat.vmdk")), data_);
}

TEST_F(AttackerLosesRace, ForTheConfiguration)
{
    run(exchanging(at(configuration), spare, things(host / "secret")));
}

// A device that is opened may be used by that, so one that comes in between is not opened either.
TEST_F(AttackerLosesRace, ForADeviceInPlaceOfAFile)
{
    if (!plant::can_make_devices())
        GTEST_SKIP() << "no right to make devices";
    const std::string device = in_root("../device");
    plant::device(device);
    const TouchWatch watch(device);
    const auto put = [device](const std::string& path) {
        plant::hard_link(path, device);
    };
    for (const char* const file : {configuration, "vm/a.vmdk.desc"}) {
        run(exchanging(at(file), spare, {put}),
            [&] { EXPECT_THAT(watch.opened(), IsEmpty()) << "in place of " << file; });
    }
    plant::nothing(device);
}

TEST_F(AttackerLosesRace, ForADescriptor)
{
    run(exchanging(at("vm/a.vmdk.desc"), spare, things(host / "descriptor")),
        [this] { expect_own_disk(); });
}

TEST_F(AttackerLosesRace, ForADataFile)
{
    Decoys decoys = things(host / "secret");
    decoys.emplace_back([](const std::string& path) { plant::link(path, "vm/b.vmdk"); });
    run(exchanging(at("vm/a.vmdk"), spare, decoys), [this] {
        expect_own_disk();
        forget_view();
    });
}

TEST_F(AttackerLosesRace, ForADisksFolder)
{
    run(exchanging(at("vm"), spare, things(host / (std::string(image) + "/vm"))), [this] {
        expect_own_disk();
        forget_view();
    });
}

TEST_F(AttackerLosesRace, ForTheImageDirectory)
{
    run(exchanging(in_root(image), outer_spare, things(host / image)));
}

TEST_F(AttackerLosesRace, ForTheClientsFolder)
{
    run(exchanging(in_root("backups/host"), outer_spare, things(host / "backups/host")));
}

TEST_F(AttackerLosesRace, ForTheViewFolder)
{
    const Attacker::Step exchange = exchanging(at("_vmir"), spare, things(host / "folder"));
    run([&](unsigned int round) {
        mkdir(at("_vmir").c_str(), 0755);
        exchange(round);
    });
}

// With a disk missing, each preparation takes the view folder away in the end.
TEST_F(AttackerLosesRace, ForAViewFolderThatIsTakenAway)
{
    order.disks = {entry("vm/a"), entry("vm/missing")};
    const Attacker::Step exchange = exchanging(at("_vmir"), spare, things(host / "folder"));
    run([&](unsigned int round) {
        mkdir(at("_vmir").c_str(), 0755);
        exchange(round);
    });
}

TEST_F(AttackerLosesRace, ForAFolderInAViewFolderThatIsTakenAway)
{
    order.disks = {entry("vm/a"), entry("vm/missing")};
    const Attacker::Step exchange = exchanging(in_view("folder"), spare, things(host / "folder"));
    run([&](unsigned int round) {
        mkdir(at("_vmir").c_str(), 0755);
        mkdir(in_view("folder").c_str(), 0755);
        exchange(round);
    });
}

TEST_F(AttackerLosesRace, ForADescriptorInTheView)
{
    plant::folder(at("_vmir"));
    Decoys decoys = things(host / "secret");
    decoys.emplace_back([this](const std::string& path) { plant::link(path, host / "nothing"); });
    decoys.emplace_back([](const std::string& path) { plant::link(path, "../vm/a.vmdk"); });
    decoys.emplace_back(
        [this](const std::string& path) { plant::hard_link(path, at("vm/b.vmdk")); });
    run(replacing(in_view("a.vmdk"), spare, decoys));
}

TEST_F(AttackerLosesRace, ForADataLinkInTheView)
{
    plant::folder(at("_vmir"));
    Decoys decoys = things(host / "secret");
    decoys.emplace_back([this](const std::string& path) { plant::link(path, host / "nothing"); });
    decoys.emplace_back(
        [this](const std::string& path) { plant::hard_link(path, at("vm/b.vmdk")); });
    run(replacing(in_view("a-flat.vmdk"), spare, decoys));
}

} // namespace
