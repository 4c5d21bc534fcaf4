// A preparation without disks of an image with a long VM configuration. The floor only reads it. Each
// call gets its memory anew from the C library, which may have it from an earlier one.
#include "figures.h"
#include "floor/whole_file.h"
#include "support/counting_log.h"
#include "support/image.h"
#include "support/measure.h"

#include <cstdlib>

namespace
{

std::string configuration_of(std::size_t size)
{
    const std::string line = "  <Disk controller=\"scsi0\" datastorePath=\"[nfs_ds] vm1.vmdk\"/>\n";
    std::string text;
    while (text.size() < size)
        text += line;
    text.resize(size);
    return text;
}

class Configuration : public Work
{
public:
    explicit Configuration(std::size_t size)
        : size_(size), image_("configuration", 0, configuration_of(size))
    {
    }

protected:
    const Image& image() const { return image_; }
    std::size_t size() const { return size_; }

private:
    std::size_t size_;
    Image image_;
};

class Ours : public Configuration
{
public:
    explicit Ours(std::size_t size) : Configuration(size), creds_(image().creds()) {}

    void set_up() override
    {
        image().remove_view();
        configuration_ = std::string();
    }

    bool call() override
    {
        LogInfo log{nullptr, count_line};
        return ixfs_prepare_vmir(creds_, no_disks_, &log, configuration_, no_paths_, false) ==
               EC_OK;
    }

    bool is_done() override { return configuration_.size() == size(); }

private:
    MountCreds creds_;
    std::vector<std::string> no_disks_;
    std::vector<std::string> no_paths_;
    std::string configuration_;
};

class Floor : public Configuration
{
public:
    explicit Floor(std::size_t size)
        : Configuration(size), file_(image().configuration_file()), content_(nullptr, std::free)
    {
    }

    void set_up() override { content_.reset(); }

    bool call() override
    {
        content_.reset(floor_whole_file(file_.c_str(), &read_));
        return content_ != nullptr;
    }

    bool is_done() override { return read_ == size(); }

private:
    std::string file_;
    std::unique_ptr<char, void (*)(void*)> content_;
    std::size_t read_ = 0;
};

} // namespace

void add_configuration_figures(Extent extent)
{
    constexpr std::size_t mebibyte = std::size_t{1} << 20;
    add_ours_and_floor<Ours, Floor>("configuration_1_MiB", mebibyte);
    if (extent == Extent::short_run)
        return;
    add_ours_and_floor<Ours, Floor>("configuration_64_MiB", 64 * mebibyte, few_repetitions);
}
