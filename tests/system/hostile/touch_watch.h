// Whether anybody opens what lies below a folder, however shortly and whatever comes of it.
#ifndef IXFS_TESTS_TOUCH_WATCH_H
#define IXFS_TESTS_TOUCH_WATCH_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class TouchWatch
{
public:
    // Watches the folder, or the file, and all that lies below it now.
    explicit TouchWatch(const std::string& root);
    ~TouchWatch();
    TouchWatch(const TouchWatch&) = delete;
    TouchWatch& operator=(const TouchWatch&) = delete;

    // The paths, sorted, of what was opened, made, changed or taken away since.
    std::vector<std::string> touched() const;

    // Of these, those that were opened. To be asked instead of the other, not after it.
    std::vector<std::string> opened() const;

private:
    void watch(const std::string& path);
    std::vector<std::string> paths_with(std::uint32_t wanted) const;

    int descriptor_;
    std::map<int, std::string> paths_;
};

#endif
