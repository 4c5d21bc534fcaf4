#include "configuration.h"

#include "etime_retry.h"
#include "files.h"
#include "interruption.h"
#include "log.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace
{

constexpr long mebibyte = 1L << 20;

// How much padding is read to see that it can be. More is counted by the file's size alone: a
// sparse file can have more than anybody can read.
constexpr long most_padding_read = 64 * mebibyte;

// How much room is made before the text's length is known.
constexpr long first_room = mebibyte;

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
        read(opened.file.descriptor(), scratch, sizeof(scratch));
}

// Returns the file's size in bytes, -1 where that can't be told, and goes to the start.
long size_of(const OpenFile& file)
{
    const long size = lseek(file.descriptor(), 0, SEEK_END);
    return lseek(file.descriptor(), 0, SEEK_SET) == 0 ? size : -1;
}

// A file's text and its size in bytes, read block by block.
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
        for (;;) {
            const ssize_t length =
                uninterrupted([this] { return read(file_.descriptor(), block_, sizeof(block_)); });
            if (length <= 0)
                return length == 0;
            take(static_cast<std::size_t>(length));
            if (in_text_ && size_ - most_growth > expected_size_)
                return false;
            if (padding_ > most_padding_read) {
                size_ = size_of(file_);
                return true;
            }
        }
    }

    long size() const { return size_; }

private:
    void take(std::size_t length)
    {
        const std::size_t text_length = in_text_ ? strnlen(block_, length) : 0;
        text_.append(block_, text_length);
        in_text_ = in_text_ && text_length == length;
        size_ += static_cast<long>(length);
        padding_ += static_cast<long>(length - text_length);
    }

    const OpenFile& file_;
    long expected_size_;
    std::string& text_;
    char block_[8192]; // no more: a caller may have a small stack
    bool in_text_ = true;
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
    const auto room = static_cast<std::size_t>(size);
    content.reserve(room > content.max_size() ? room : std::min<std::size_t>(room, first_room));
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
