// A log line of 80 characters.
#include "figures.h"
#include "floor/log.h"
#include "support/handle.h"
#include "support/measure.h"

#include <cstdio>

namespace
{

constexpr char tag[] = "bench()";
constexpr char format[] = "INF - Reading VM Config file number %d from: %s\n";
constexpr char path[] = "/usr/varnis/var/ixfs/media1/backups"; // with it the line has 80
constexpr int lines_at_once = 1000; // so many that the clock does not count

class Lines : public Work
{
public:
    void set_up() override { lines_logged = 0; }

    bool is_done() override
    {
        return lines_logged == lines_at_once && std::snprintf(nullptr, 0, format, 0, path) == 80;
    }

    long operations() const override { return lines_at_once; }
};

class Ours : public Lines
{
public:
    bool call() override
    {
        for (int i = 0; i < lines_at_once; ++i)
            _ixfs_log(handle_.get(), tag, IXFS_LOG_INF, format, i % 10, path);
        return true;
    }

private:
    Handle handle_ = make_handle();
};

class Floor : public Lines
{
public:
    bool call() override
    {
        for (int i = 0; i < lines_at_once; ++i)
            floor_log(count_line, tag, IXFS_LOG_INF, format, i % 10, path);
        return true;
    }
};

} // namespace

void add_log_figures()
{
    add_benchmark("log_80_characters", "ours", [] { return std::make_unique<Ours>(); });
    add_benchmark("log_80_characters", "floor", [] { return std::make_unique<Floor>(); });
}
