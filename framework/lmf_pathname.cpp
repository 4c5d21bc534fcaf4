#include "lmf_pathname.h"

#include "path_text.h"

NameSegments::NameSegments(const std::string& path)
{
    std::size_t start = 0; // leading separators belong to the first segment
    std::size_t name = path.find_first_not_of(path_separator);
    if (name == std::string::npos && !path.empty())
        segments_.push_back(path); // nothing but separators: the root
    while (name != std::string::npos) {
        const std::size_t end = path.find(path_separator, name);
        segments_.push_back(path.substr(start, end == std::string::npos ? end : end - start));
        start = name = path.find_first_not_of(path_separator, end);
    }
}

const char* NameSegments::getSegment(long index, std::string* /*unused1*/,
                                     std::string* /*unused2*/) const
{
    const long number = index == -1 ? count() : index;
    if (number < 1 || number > count())
        return nullptr;
    return segments_[static_cast<std::size_t>(number) - 1].c_str();
}

LmfPathname::~LmfPathname() = default;

void LmfPathname::makeFilename(const char* name, bool append)
{
    const std::string_view component = name != nullptr ? name : "";
    path_ = append ? joined_path(path_, component) : std::string(component);
    segments_.reset();
}

void LmfPathname::makeSegments() const
{
    segments_.emplace(path_);
}
