// A whole preparation of an image, for more and more disks. The floor does without the mount,
// but for the one without disks.
#include "figures.h"
#include "floor/empty_prepare.h"
#include "floor/prepare.h"
#include "support/counting_log.h"
#include "support/image.h"
#include "support/measure.h"
#include "support/mounting.h"

#include <map>
#include <sys/stat.h>

namespace
{

const Image& image_with(int disks)
{
    static std::map<int, Image> images;
    return images.try_emplace(disks, "disks" + std::to_string(disks), disks).first->second;
}

class Preparation : public Work
{
public:
    explicit Preparation(int disks) : image_(image_with(disks)) {}

    void set_up() override { image_.remove_view(); }

    bool is_done() override
    {
        if (image_.disks().empty())
            return true;
        const std::string last = image_.view_folder() + "/" + image_.disks().back();
        struct stat link {
        };
        return stat((last + "-flat.vmdk").c_str(), &link) == 0 && link.st_nlink == 2 &&
               read_file(last + ".vmdk") == descriptor_text(image_.disks().back() + "-flat.vmdk");
    }

protected:
    const Image& image() const { return image_; }

private:
    const Image& image_;
};

class Ours : public Preparation
{
public:
    explicit Ours(int disks)
        : Preparation(disks), creds_(image().creds()), entries_(image().entries())
    {
    }

    void set_up() override
    {
        Preparation::set_up();
        configuration_ = {};
        paths_ = {};
    }

    bool call() override
    {
        LogInfo log{nullptr, count_line};
        return ixfs_prepare_vmir(creds_, entries_, &log, configuration_, paths_, false) == EC_OK;
    }

private:
    MountCreds creds_;
    std::vector<std::string> entries_; // a copy, for an interface that takes no const
    std::string configuration_;
    std::vector<std::string> paths_;
};

class Floor : public Preparation
{
public:
    explicit Floor(int disks)
        : Preparation(disks), disk_folder_(image().disk_folder()),
          view_folder_(image().view_folder())
    {
        for (const std::string& disk : image().disks())
            texts_.push_back({disk + ".vmdk.desc", disk + ".vmdk", disk + "-flat.vmdk",
                              descriptor_text(disk + "-flat.vmdk")});
        for (const Texts& texts : texts_)
            disks_.push_back({texts.descriptor.c_str(), texts.disk.c_str(), texts.disk.c_str(),
                              texts.link.c_str(), texts.content.data(), texts.content.size()});
    }

    bool call() override
    {
        return floor_prepare(disk_folder_.c_str(), view_folder_.c_str(), disks_.data(),
                             disks_.size()) == 0;
    }

private:
    struct Texts {
        std::string descriptor;
        std::string disk; // the name of the data, and of the new descriptor
        std::string link;
        std::string content;
    };

    std::string disk_folder_;
    std::string view_folder_;
    std::vector<Texts> texts_;
    std::vector<floor_disk> disks_;
};

// Without disks.
class EmptyFloor : public Work
{
public:
    bool call() override { return floor_empty_prepare(mount_.c_str(), unmount_.c_str()) == 0; }

private:
    const std::string mount_ = mount_command("disks0");
    const std::string unmount_ = unmount_command("disks0");
};

// The same work where devices may be opened, so that a file is looked at before it is opened.
template <typename Preparer>
class WithDevices : public Preparer
{
public:
    using Preparer::Preparer;

private:
    const FolderWithDevices devices_{this->image().mount_point()};
};

constexpr int most_disks = 32768;

template <typename MakeWork>
void add(const std::string& figure, const char* what, int disks, MakeWork make_work)
{
    benchmark::internal::Benchmark* const benchmark = add_benchmark(figure, what, make_work);
    if (disks == most_disks)
        benchmark->Repetitions(few_repetitions);
}

} // namespace

void add_prepare_figures(Extent extent)
{
    for (const int disks : {0, 1, 8, 64, 512, 4096, most_disks}) {
        if (disks > 64 && extent == Extent::short_run)
            break;
        const std::string figure = "prepare_" + std::to_string(disks) + "_disks";
        add(figure, "ours", disks, [disks] { return std::make_unique<Ours>(disks); });
        if (disks > 0)
            add(figure, "floor", disks, [disks] { return std::make_unique<Floor>(disks); });
        else
            add(figure, "floor", disks, [] { return std::make_unique<EmptyFloor>(); });
    }
    if (extent == Extent::short_run)
        return;
    static constexpr int disks = 512;
    const std::string figure = "prepare_512_disks_with_devices";
    add_benchmark(figure, "ours", [] { return std::make_unique<WithDevices<Ours>>(disks); });
    add_benchmark(figure, "floor", [] { return std::make_unique<WithDevices<Floor>>(disks); });
}
