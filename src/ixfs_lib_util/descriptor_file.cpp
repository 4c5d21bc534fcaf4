#include "descriptor_file.h"

#include "interruption.h"
#include "regular_file.h"

#include <algorithm>

bool LineReader::next(std::string_view& line)
{
    for (;;) {
        const std::string_view rest(buffer_ + begin_, end_ - begin_);
        const std::size_t newline = rest.substr(0, longest).find('\n');
        if (newline != std::string_view::npos || rest.size() >= longest || at_end_) {
            line = rest.substr(0, newline != std::string_view::npos ? newline + 1 : longest);
            begin_ += line.size();
            return !line.empty();
        }
        fill();
        if (error_ != 0)
            return false; // half a line is no line
    }
}

// Puts more behind what is left, or notes the end.
void LineReader::fill()
{
    std::copy(buffer_ + begin_, buffer_ + end_, buffer_);
    end_ -= begin_;
    begin_ = 0;
    const std::size_t room = sizeof(buffer_) - end_;
    const ssize_t length =
        uninterrupted([=] { return read(file_.descriptor(), buffer_ + end_, room); });
    if (length <= 0) {
        at_end_ = true;
        error_ = length == 0 ? 0 : errno;
        return;
    }
    end_ += static_cast<std::size_t>(length);
    read_ += length;
    at_end_ = read_ == size_ && static_cast<std::size_t>(length) < room;
    if (size_ && read_ - most_growth > *size_)
        error_ = EFBIG;
}

void BlockWriter::write(std::string_view text)
{
    while (!text.empty() && error_ == 0) {
        const std::size_t size = text.copy(buffer_ + size_, sizeof(buffer_) - size_);
        size_ += size;
        text.remove_prefix(size);
        if (size_ == sizeof(buffer_))
            flush();
    }
}

int BlockWriter::flush()
{
    std::size_t written = 0;
    while (written < size_ && error_ == 0) {
        const ssize_t size = uninterrupted([this, written] {
            return ::write(file_.descriptor(), buffer_ + written, size_ - written);
        });
        if (size > 0)
            written += static_cast<std::size_t>(size);
        else // a file that takes nothing and tells no error never will
            error_ = size == 0 ? EIO : errno;
    }
    size_ = 0;
    return error_;
}
