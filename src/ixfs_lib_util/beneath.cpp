#include "beneath.h"

#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <vector>

namespace
{

constexpr int as_folder_itself = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// ---- By the kernel ------------------------------------------------------------------------------

OpenFile open_by_kernel(int folder, const char* path, int flags, Links links)
{
    open_how how{};
    how.flags = static_cast<unsigned int>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    if (links == Links::none)
        how.resolve |= RESOLVE_NO_SYMLINKS;
    // EAGAIN: somebody renamed a folder at the same time, so the kernel could not tell whether the
    // path leads out.
    constexpr int most_tries = 100;
    for (int tries = 1;; ++tries) {
        OpenFile file(static_cast<int>(syscall(SYS_openat2, folder, path, &how, sizeof(how))));
        if (file.is_open() || errno != EAGAIN || tries == most_tries)
            return file;
    }
}

// ---- Segment by segment -------------------------------------------------------------------------

OpenFile failed(int error)
{
    errno = error;
    return {};
}

// The way to a file, one segment after the other, with the links on it.
class Walk
{
public:
    Walk(int root, const char* path, Links links) : root_(root), links_(links) { put_ahead(path); }

    OpenFile open(int flags)
    {
        OpenFile here = leads_out_ ? failed(EXDEV) : from_root();
        while (here.is_open() && !ahead_.empty()) {
            const std::string name = ahead_.back();
            ahead_.pop_back();
            if (name == "..") {
                here = parent();
                continue;
            }
            const Step step = look(here, name);
            if (step == Step::failed)
                return {};
            if (step == Step::link)
                continue; // its target is ahead now
            if (ahead_.empty())
                return OpenFile(openat(here.descriptor(), name.c_str(), flags | O_NOFOLLOW));
            here = OpenFile(openat(here.descriptor(), name.c_str(), as_folder_itself));
            behind_.push_back(name);
        }
        if (!here.is_open())
            return {};
        return OpenFile(openat(here.descriptor(), ".", flags)); // the way ended with ".."
    }

private:
    enum class Step { entry, link, failed };

    // An absolute path leads out, like a ".." above the root.
    void put_ahead(std::string_view path)
    {
        leads_out_ = leads_out_ || (!path.empty() && path.front() == '/');
        std::vector<std::string> names;
        while (!path.empty()) {
            const std::size_t length = path.find('/');
            const std::string_view name = path.substr(0, length);
            if (!name.empty() && name != ".")
                names.emplace_back(name);
            path.remove_prefix(length == std::string_view::npos ? path.size() : length + 1);
        }
        ahead_.insert(ahead_.end(), names.rbegin(), names.rend());
    }

    // Walks from the root again. The folder's own ".." could lead out: somebody may have moved the
    // folder meanwhile.
    OpenFile parent()
    {
        if (behind_.empty())
            return failed(EXDEV);
        behind_.pop_back();
        return from_root();
    }

    OpenFile from_root()
    {
        OpenFile here(openat(root_, ".", as_folder_itself));
        for (auto name = behind_.begin(); here.is_open() && name != behind_.end(); ++name)
            here = OpenFile(openat(here.descriptor(), name->c_str(), as_folder_itself));
        return here;
    }

    Step look(const OpenFile& here, const std::string& name)
    {
        char target[PATH_MAX];
        const ssize_t length = readlinkat(here.descriptor(), name.c_str(), target, sizeof(target));
        if (length == -1)
            return errno == EINVAL ? Step::entry : Step::failed; // EINVAL: it is no link
        if (links_ == Links::none || ++followed_ > most_links) {
            errno = ELOOP;
            return Step::failed;
        }
        put_ahead({target, static_cast<std::size_t>(length)});
        if (leads_out_) {
            errno = EXDEV;
            return Step::failed;
        }
        return Step::link;
    }

    static constexpr int most_links = 40; // as many as the kernel follows

    int root_;
    Links links_;
    int followed_ = 0;
    bool leads_out_ = false;
    std::vector<std::string> ahead_;  // the next one last
    std::vector<std::string> behind_; // real folders, from the root on
};

} // namespace

OpenFile open_beneath(int folder, const char* path, int flags, Links links)
{
    OpenFile file = open_by_kernel(folder, path, flags, links);
    // Some sandboxes refuse what they do not know with EPERM. That is no answer about a file.
    if (!file.is_open() && (errno == ENOSYS || errno == EPERM))
        file = Walk(folder, path, links).open(flags | O_CLOEXEC);
    return file;
}
