// What an attacker puts into an image. Each takes away what is there already.
#ifndef IXFS_TESTS_PLANT_H
#define IXFS_TESTS_PLANT_H

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace plant
{

void nothing(const std::string& path);
void file(const std::string& path, const std::string& bytes);
void folder(const std::string& path);
void link(const std::string& path, const std::string& target);
void hard_link(const std::string& path, const std::string& existing);
void fifo(const std::string& path);
void socket(const std::string& path);

// One that yields zeros without an end.
void device(const std::string& path);

// Whether this process may make devices.
bool can_make_devices();

// A thing that is no regular file; `plant` puts it somewhere.
struct Thing {
    std::string name;
    std::function<void(const std::string& path)> plant;
};
void PrintTo(const Thing& thing, std::ostream* stream);

// All kinds of things that are no files: folder, FIFO, socket and device.
std::vector<Thing> strange_things();

// A way to lead from a place in the image to a file or folder outside of it, by symbolic links.
struct WayOut {
    std::string name;
    std::function<void(const std::string& path, const std::string& target)> plant;
};
void PrintTo(const WayOut& way, std::ostream* stream);

std::vector<WayOut> ways_out();

} // namespace plant

#endif
