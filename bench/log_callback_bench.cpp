// What a caller's log callback costs: the same preparation with callbacks that do more and more
// with a line.
#include "figures.h"
#include "support/counting_log.h"
#include "support/image.h"
#include "support/measure.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char log_file[] = "/usr/varnis/var/bench.log";

FILE* stream;
int descriptor;

// Into the stream's buffer: a line is in the file when the buffer is full.
void buffer_line(int severity, const char* tag, const char* message)
{
    std::fprintf(stream, "%d %s %s", severity, tag, message);
}

// A line is in the file when this returns, so a crash loses none.
void write_line(int severity, const char* tag, const char* message)
{
    dprintf(descriptor, "%d %s %s", severity, tag, message);
}

// Made when it is first needed.
const Image& image_of(int disks)
{
    static const Image image("logged", disks);
    return image;
}

class Logged : public Work
{
public:
    Logged(int disks, ixfs_log_callback callback)
        : image_(image_of(disks)), entries_(image_.entries()), callback_(callback)
    {
    }

    void set_up() override
    {
        image_.remove_view();
        stream = std::fopen(log_file, "w");
        descriptor = open(log_file, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        configuration_ = {};
        paths_ = {};
    }

    bool call() override
    {
        LogInfo log{nullptr, callback_};
        const ec_status status =
            ixfs_prepare_vmir(image_.creds(), entries_, callback_ != nullptr ? &log : nullptr,
                              configuration_, paths_, false);
        return status == EC_OK && std::fflush(stream) == 0;
    }

    bool is_done() override
    {
        return std::fclose(stream) == 0 && close(descriptor) == 0 && unlink(log_file) == 0;
    }

private:
    const Image& image_;
    std::vector<std::string> entries_;
    ixfs_log_callback callback_;
    std::string configuration_;
    std::vector<std::string> paths_;
};

} // namespace

void add_log_callback_figures(Extent extent)
{
    const int disks = extent == Extent::whole ? 512 : 8;
    const std::string figure = "prepare_" + std::to_string(disks) + "_disks_logged";
    const auto add = [&](const char* what, ixfs_log_callback callback) {
        add_benchmark(figure, what, [=] { return std::make_unique<Logged>(disks, callback); });
    };
    add("nowhere", nullptr);
    add("counted", count_line);
    add("buffered", buffer_line);
    add("written", write_line);
}
