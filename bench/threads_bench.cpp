// Preparing two images in turn, and on two threads at once. Each call makes a handle of its own, so
// the threads share nothing but the mount mutex. Wall time.
#include "figures.h"
#include "support/image.h"
#include "support/measure.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

bool prepare(const Image& image)
{
    std::vector<std::string> entries = image.entries();
    std::vector<std::string> paths;
    std::string configuration;
    return ixfs_prepare_vmir(image.creds(), entries, nullptr, configuration, paths, false) == EC_OK;
}

// Made when they are first needed.
const Image& image_of(int disks, int number)
{
    static const Image images[] = {Image("thread0", disks), Image("thread1", disks)};
    return images[number];
}

class TwoPreparations : public Work
{
public:
    explicit TwoPreparations(int disks) : one_(image_of(disks, 0)), other_(image_of(disks, 1)) {}

    void set_up() override
    {
        one_.remove_view();
        other_.remove_view();
    }

protected:
    const Image& one_;
    const Image& other_;
};

class InTurn : public TwoPreparations
{
public:
    using TwoPreparations::TwoPreparations;

    bool call() override { return prepare(one_) && prepare(other_); }
};

class AtOnce : public TwoPreparations
{
public:
    using TwoPreparations::TwoPreparations;

    bool call() override
    {
        bool prepared_other = false;
        std::thread thread([&] { prepared_other = prepare(other_); });
        const bool prepared_one = prepare(one_);
        thread.join();
        return prepared_one && prepared_other;
    }
};

} // namespace

void add_threads_figures(Extent extent)
{
    const int disks = extent == Extent::whole ? 4096 : 8;
    const std::string figure = "prepare_2_images_of_" + std::to_string(disks);
    add_benchmark(
        figure, "in_turn", [disks] { return std::make_unique<InTurn>(disks); }, wall_seconds)
        ->Repetitions(few_repetitions);
    add_benchmark(
        figure, "at_once", [disks] { return std::make_unique<AtOnce>(disks); }, wall_seconds)
        ->Repetitions(few_repetitions);
}
