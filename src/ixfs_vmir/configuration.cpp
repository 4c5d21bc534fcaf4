#include "configuration.h"

#include "etime_retry.h"
#include "files.h"
#include "log.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr long mebibyte = 1L << 20;

// How much padding is read to see that it can be. More is counted by the file's size alone: a
// sparse file can have more than anybody can read.
constexpr long most_padding_read = 64 * mebibyte;

// Returns how much room a text takes while it is read: the read that finds the end wants a byte.
constexpr std::size_t room_for(long size)
{
    return static_cast<std::size_t>(size) + 1;
}

// How much room is made before anything is known of the text.
constexpr std::size_t first_room = room_for(mebibyte);

// Up to this size a file whose text fills the first room is taken to be text to its end.
constexpr long credible_size = 256 * mebibyte;

bool wait_for_file(_ixfs_control_t* handle, const Log& log, Image& image, const ImageFile& file)
{
    constexpr int most_checks = 3;
    constexpr timespec pause = {10, 0};
    const char* const path = file.path();
    int failed_checks = 0;
    for (;;) {
        const int result = call_again_on_etime([&] { return image.access(file); });
        if (report_access(handle, path, result))
            return true;
        if (++failed_checks == most_checks) {
            log.error("ERR - VM Config file does not exist: %s\n", path);
            return false;
        }
        log.info("INF - waiting for VM Config file to be accessible\n");
        image.close(); // what is mounted meanwhile must be seen
        nanosleep(&pause, nullptr);
    }
}

// A first short read makes the mounted file system fetch the file. Nothing of it is used.
void prime(Image& image, const ImageFile& file)
{
    char scratch[100];
    const RegularFile opened = image.open_for_reading(file);
    [[maybe_unused]] const ssize_t unused =
        read_regular_file(opened.file.descriptor(), scratch, sizeof(scratch));
}

// Returns the file's size in bytes, -1 where that can't be told, and goes to the start.
long size_of(const OpenFile& file)
{
    const long size = lseek(file.descriptor(), 0, SEEK_END);
    return lseek(file.descriptor(), 0, SEEK_SET) == 0 ? size : -1;
}

// Lets the kernel provide a block's pages together. One by one, as they come where it cannot do
// that, they take a quarter of the time of reading a large file.
void provide_pages(char* block, std::size_t size)
{
    const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* first = block;
    if (std::align(page_size, page_size, first, size) != nullptr)
        madvise(first, size, MADV_POPULATE_WRITE);
}

// A file's text and its size in bytes.
class ConfigurationReader
{
public:
    ConfigurationReader(const OpenFile& file, long expected_size, std::string& text)
        : file_(file), expected_size_(expected_size), text_(text)
    {
        text_.clear();
    }

    // Returns whether the file could be read to its end.
    bool run()
    {
        const bool is_read = read_text() && (at_end_ || read_padding());
        give_up_spare_room();
        return is_read;
    }

    long size() const { return size_; }

private:
    // Reads up to the first NUL and a little further, or to the end.
    bool read_text()
    {
        while (!at_end_ && padding_ == 0) {
            if (text_.size() == text_.capacity())
                make_more_room();
            const ssize_t length = read_into_text();
            if (length < 0)
                return false;
            at_end_ = length == 0;
            size_ += length;
            if (padding_ == 0 && size_ - most_growth > expected_size_)
                return false;
        }
        return true;
    }

    // A string's room is zeroed before it can be read into. In small steps that costs little: it is
    // still in the cache when the bytes come.
    ssize_t read_into_text()
    {
        const std::size_t begin = text_.size();
        const std::size_t room = std::min(text_.capacity() - begin, step);
        if (has_room_for_all_)
            provide_pages(text_.data() + begin, room);
        text_.resize(begin + room);
        char* const block = text_.data() + begin;
        const ssize_t length = read_regular_file(file_.descriptor(), block, room);
        const std::size_t got = length > 0 ? static_cast<std::size_t>(length) : 0;
        const std::size_t text_length = strnlen(block, got);
        padding_ = static_cast<long>(got - text_length);
        text_.resize(begin + text_length);
        return length;
    }

    // Makes room for all of a credible file at once: doubling it, and copying the text each time,
    // took a quarter of the time.
    void make_more_room()
    {
        const std::size_t all = room_for(expected_size_);
        const bool is_credible = expected_size_ <= credible_size && all > text_.capacity();
        has_room_for_all_ = is_credible && reserve(all);
        if (!has_room_for_all_)
            text_.reserve(2 * text_.capacity());
    }

    bool reserve(std::size_t room)
    {
        try {
            text_.reserve(room);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }

    bool read_padding()
    {
        char block[8192]; // no more: a caller may have a small stack
        while (padding_ <= most_padding_read) {
            const ssize_t length = read_regular_file(file_.descriptor(), block, sizeof(block));
            if (length <= 0)
                return length == 0;
            size_ += length;
            padding_ += length;
        }
        size_ = size_of(file_);
        return true;
    }

    void give_up_spare_room()
    {
        if (has_room_for_all_ && text_.size() < text_.capacity() / 2)
            text_.shrink_to_fit();
    }

    static constexpr std::size_t step = std::size_t{128} << 10;

    const OpenFile& file_;
    long expected_size_;
    std::string& text_;
    bool at_end_ = false;
    bool has_room_for_all_ = false; // also for text that may not come
    long size_ = 0;
    long padding_ = 0; // what was read from the first NUL on
};

} // namespace

ec_status readXml(_ixfs_control_t* handle, Image& image, const ImageFile& file,
                  std::string& content)
{
    const Log log(handle, "readXml");
    const char* const path = file.path();
    if (!wait_for_file(handle, log, image, file))
        return EC_FILE_NOT_FOUND;
    prime(image, file);
    const RegularFile opened = image.open_for_reading(file);
    if (!opened.file.is_open()) {
        log.error("ERR - Failed to open file for reading: %s\n", path);
        return EC_FILE_NOT_OPENED;
    }
    log.info("INF - Size reported by stat: %ld bytes\n", static_cast<long>(opened.status.st_size));
    const long size = size_of(opened.file);
    if (size <= 0) {
        log.error("ERR - Failed to stat file: %s and determine size\n", path);
        return EC_FILE_NOT_READ;
    }
    // A size that no text can have throws std::length_error here, before anything is read.
    const std::size_t room = room_for(size);
    content.reserve(room > content.max_size() ? room : std::min(room, first_room));
    log.info("INF - Found xml file of size: %ld bytes, %s\n", size, path);
    ConfigurationReader reader(opened.file, size, content);
    if (!reader.run()) {
        log.error("ERR - Failed to read contents of file: %s\n", path);
        return EC_FILE_NOT_READ;
    }
    // The stored file can carry zero padding behind its text.
    log.info("INF - Read file size: %ld\n", reader.size());
    log.info("INF - Size after striping padding: %ld\n", static_cast<long>(content.size()));
    return EC_OK;
}
