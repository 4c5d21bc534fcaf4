// A path built component by component, and its split into numbered segments.
#ifndef LMF_PATHNAME_H
#define LMF_PATHNAME_H

#include "code_page.h"

#include <optional>
#include <string>
#include <vector>

// A path's segments, numbered from 1. The first keeps the leading "/" of an absolute path. If you
// join the segments with "/" one after another, you get each parent folder in turn, and last the
// path. Empty segments, as from doubled or trailing separators, don't count.
class LMF_API NameSegments
{
public:
    // Splits a path.
    explicit NameSegments(const std::string& path);

    // Returns segment `index`; -1 means the last. Null if there is no such segment. The text lives
    // as long as this object. The further arguments are unused: pass null.
    const char* getSegment(long index, std::string* unused1, std::string* unused2) const;

    // Returns how many there are.
    long count() const { return static_cast<long>(segments_.size()); }

private:
    std::vector<std::string> segments_;
};

// A path. One thread at a time, also for reading: the path is split when that is first needed.
class LMF_API LmfPathname
{
public:
    LmfPathname() = default;
    LmfPathname(const LmfPathname&) = default;
    LmfPathname(LmfPathname&&) = default;
    LmfPathname& operator=(const LmfPathname&) = default;
    LmfPathname& operator=(LmfPathname&&) = default;
    virtual ~LmfPathname();

    // Without `append` the path becomes `name`. With it, `name` (one or more components) is put
    // behind the path and a "/", or becomes the path when that is empty. A null name is empty.
    // The old segments are gone.
    void makeFilename(const char* name, bool append);

    // Splits the path as it stands now.
    void makeSegments() const;

    // Returns the segments of the last split; null before the first.
    const NameSegments* segments() const { return segments_ ? &*segments_ : nullptr; }

    // The path for messages, NUL-terminated; valid until the path changes.
    const char* display_str() const { return path_.c_str(); }

    // The path. A change through text() does not drop the segments; call makeSegments() after it.
    const std::string& text() const { return path_; }
    std::string& text() { return path_; }

private:
    std::string path_;
    mutable std::optional<NameSegments> segments_;
};

#endif
