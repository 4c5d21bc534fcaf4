#include "image_builder.h"

#include "fuzz_target.h"

#include "reference/text.h"

#include <algorithm>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

constexpr std::size_t most_disks = 3;
constexpr std::size_t most_segments = 8;
constexpr char image[] = "backups/host/allusers/full/1700000000";

std::string descriptor_of(const std::string& data_name)
{
    return "# Disk DescriptorFile\nRW 128 VMFS \"" + data_name + "\"\nddb.uuid = \"60\"\n";
}

// The words of a line; "\n" in it stands for a newline.
std::string word_off(std::string& line)
{
    const std::size_t end = std::min(line.find(' '), line.size());
    std::string word = line.substr(0, end);
    line.erase(0, end + 1);
    for (std::size_t at = 0; (at = word.find("\\n", at)) != std::string::npos; ++at)
        word.replace(at, 2, "\n");
    return word;
}

class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { reset(-1); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }
    void reset(int number)
    {
        if (number_ != -1)
            close(number_);
        number_ = number;
    }

private:
    int number_;
};

} // namespace

// A name in an open folder. The folders on the way are made where they are missing; links are not
// followed, for they may lead out.
struct ImageBuilder::Place {
    Place(const std::string& root, const std::string& path)
        : folder(open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))
    {
        std::vector<std::string> segments = split(path, "/", most_segments);
        segments.erase(std::remove(segments.begin(), segments.end(), ""), segments.end());
        if (segments.empty())
            folder.reset(-1);
        for (std::size_t i = 0; i + 1 < segments.size() && folder.number() != -1; ++i)
            enter(segments[i]);
        name = segments.empty() ? "" : segments.back();
        if (name == "." || name == "..")
            folder.reset(-1);
    }

    bool is_there() const { return folder.number() != -1; }

    void enter(const std::string& segment)
    {
        if (segment == "..") {
            folder.reset(-1);
            return;
        }
        mkdirat(folder.number(), segment.c_str(), 0755);
        folder.reset(openat(folder.number(), segment.c_str(),
                            O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }

    void clear() const
    {
        std::error_code error;
        fs::remove_all("/proc/self/fd/" + std::to_string(folder.number()) + "/" + name, error);
    }

    void write(const std::string& bytes) const
    {
        const Descriptor file(openat(folder.number(), name.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (file.number() != -1) [[maybe_unused]]
            const auto written = ::write(file.number(), bytes.data(), bytes.size());
    }

    Descriptor folder;
    std::string name;
};

ImageBuilder::ImageBuilder(std::string root, std::string outside)
    : root_(std::move(root)), outside_(std::move(outside))
{
}

void ImageBuilder::build(const std::vector<std::string>& lines)
{
    fs::remove_all(root_);
    disks_.clear();
    twice_ = new_disk_uuids_ = false;
    build_ordinary();
    for (const std::string& line : lines)
        follow(line);
}

void ImageBuilder::build_ordinary() const
{
    fs::create_directories(root_);
    put("file", "^^.^VIRTUAL_FILE_FSMAP", std::string("<vm/>\0\0\0", 8));
    for (const std::string disk : {"vm/a", "vm/b", "vm1/a"}) {
        put("descriptor", disk + ".vmdk.desc", "");
        put("file", disk + ".vmdk", "data of " + disk);
    }
    put("file", "../1600000000/vm/a.vmdk", "an older backup");
}

void ImageBuilder::follow(const std::string& line)
{
    std::string rest = line;
    const std::string kind = word_off(rest);
    if (kind != "file")
        rest = reference::up_to_nul(rest);
    if (kind == "twice") {
        twice_ = true;
    } else if (kind == "uuids") {
        new_disk_uuids_ = true;
    } else if (kind == "disk") {
        if (disks_.size() < most_disks)
            disks_.push_back("[ds] " + std::string(image) + "/" + word_off(rest) + ".vmdk.desc");
    } else {
        const std::string name = word_off(rest);
        put(kind, name, rest);
    }
}

// A name that begins with "/" lies below the root, "../" above the image directory, else in it.
void ImageBuilder::put(const std::string& kind, const std::string& name,
                       const std::string& rest) const
{
    const fs::path below_root = name[0] == '/' ? fs::path(name.substr(1)) : fs::path(image) / name;
    const Place place(root_, below_root.lexically_normal());
    if (!place.is_there())
        return;
    const int folder = place.folder.number();
    const char* const file = place.name.c_str();
    if (kind == "link") {
        link(place, rest);
        return;
    }
    if (kind == "hard") {
        std::string existing = rest;
        const Place other(root_, std::string(image) + "/" + word_off(existing));
        place.clear();
        if (other.is_there())
            linkat(other.folder.number(), other.name.c_str(), folder, file, 0);
        return;
    }
    place.clear();
    if (kind == "file")
        place.write(rest);
    else if (kind == "descriptor")
        place.write(descriptor_of(place.name));
    else if (kind == "folder")
        mkdirat(folder, file, 0755);
    else if (kind == "fifo")
        mkfifoat(folder, file, 0644);
    else if (kind == "socket")
        mknodat(folder, file, S_IFSOCK | 0644, 0);
    else if (kind == "device")
        mknodat(folder, file, S_IFCHR | 0644, makedev(1, 5)); // endless zeros
}

// "$out", "$up" and "$root" in front stand for the folder outside, by an absolute and by a relative
// path, and for the image's root.
void ImageBuilder::link(const Place& place, const std::string& target) const
{
    std::string path = target;
    const std::string up = "../../../../../../../../../../../../..";
    const std::pair<const char*, std::string> fronts[] = {{"$out", outside_},
                                                          {"$up", up + outside_},
                                                          {"$root", root_},
                                                          {"$proc", "/proc/self/root" + outside_}};
    for (const auto& [front, meaning] : fronts) {
        if (path.rfind(front, 0) == 0)
            path.replace(0, std::char_traits<char>::length(front), meaning);
    }
    place.clear();
    symlinkat(path.c_str(), place.folder.number(), place.name.c_str());
}
