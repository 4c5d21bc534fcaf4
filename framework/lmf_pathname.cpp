#include "lmf_pathname.h"

#include <utility>

namespace
{

constexpr char separator = '/';

} // namespace

NameSegments::NameSegments(const std::string& path)
{
    std::size_t start = 0; // leading separators belong to the first segment
    std::size_t name = path.find_first_not_of(separator);
    if (name == std::string::npos && !path.empty())
        segments_.push_back(path); // nothing but separators: the root
    while (name != std::string::npos) {
        const std::size_t end = path.find(separator, name);
        segments_.push_back(path.substr(start, end == std::string::npos ? end : end - start));
        start = name = path.find_first_not_of(separator, end);
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
    std::string component = name != nullptr ? name : ""; // a copy: the name may be this path's own
    if (append && !path_.empty())
        component.insert(0, path_ + separator);
    path_ = std::move(component);
    segments_.reset();
}

void LmfPathname::makeSegments() const
{
    segments_.emplace(path_);
}

const char* LmfPathname::last_segment() const
{
    if (!segments_)
        makeSegments();
    return segments_->getSegment(-1, nullptr, nullptr);
}
