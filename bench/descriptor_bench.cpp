// The copy of a descriptor, from the usual 20 lines to lengths that only a damaged image has.
#include "figures.h"
#include "floor/copy.h"
#include "support/handle.h"
#include "support/image.h"
#include "support/measure.h"

#include <filesystem>

namespace
{

constexpr char extent_name[] = "disk00000-flat.vmdk";

// As long as wanted by its last lines, repeated.
std::string descriptor_of(std::size_t size)
{
    std::string text = descriptor_text(extent_name);
    const std::string more = text.substr(text.find("ddb.adapterType"));
    while (text.size() < size)
        text += more;
    return text;
}

class Copy : public Work
{
public:
    explicit Copy(std::size_t size) { write_file(from_, descriptor_of(size)); }

    void set_up() override { std::filesystem::remove(to_); }

    // The extent's name stays the same, so the copy is the same as the original.
    bool is_done() override
    {
        if (!is_compared_)
            is_same_ = read_file(from_) == read_file(to_);
        is_compared_ = true; // once: a long file's comparison takes longer than its copy
        return is_same_;
    }

protected:
    const char* from() const { return from_.c_str(); }
    const char* to() const { return to_.c_str(); }

private:
    WorkFolder folder_{"descriptor"};
    std::string from_ = folder_.path() + "/old";
    std::string to_ = folder_.path() + "/new";
    bool is_compared_ = false;
    bool is_same_ = false;
};

class Ours : public Copy
{
public:
    using Copy::Copy;

    bool call() override { return _ixfs_copy_desc(handle_.get(), from(), to(), extent_name) == 1; }

private:
    Handle handle_ = make_handle();
};

class Floor : public Copy
{
public:
    using Copy::Copy;

    bool call() override { return floor_copy(from(), to()) == 0; }
};

} // namespace

void add_descriptor_figures(Extent extent)
{
    constexpr std::size_t mebibyte = std::size_t{1} << 20;
    add_ours_and_floor<Ours, Floor>("copy_desc_20_lines", std::size_t{0});
    add_ours_and_floor<Ours, Floor>("copy_desc_1_MiB", mebibyte);
    if (extent == Extent::short_run)
        return;
    add_ours_and_floor<Ours, Floor>("copy_desc_64_MiB", 64 * mebibyte, few_repetitions);
}
