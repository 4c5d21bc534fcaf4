#include "descriptor_file.h"

#include "interruption.h"
#include "regular_file.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace
{

constexpr std::size_t large_block_size = std::size_t{64} << 10;

} // namespace

bool LineReader::next(std::string_view& lines)
{
    for (;;) {
        const std::size_t size = whole_lines();
        if (size > 0 || at_end_) {
            lines = {block_ + begin_, size};
            begin_ += size;
            return size > 0;
        }
        fill();
        if (error_ != 0)
            return false; // half a line is no line
    }
}

// Returns how many of the bytes that are left make whole lines or pieces. At the end all do.
std::size_t LineReader::whole_lines() const
{
    const char* const begin = block_ + begin_;
    const std::size_t size = end_ - begin_;
    if (at_end_)
        return size;
    const void* const newline = memrchr(begin, '\n', size);
    const auto* const last = static_cast<const char*>(newline);
    const std::size_t lines = last != nullptr ? static_cast<std::size_t>(last + 1 - begin) : 0;
    return lines + (size - lines) / longest_line * longest_line;
}

// Puts more behind what is left, or notes the end.
void LineReader::fill()
{
    char* const old_block = block_;
    if (end_ == capacity_ && capacity_ < large_block_size)
        use_large_block();
    end_ -= begin_;
    std::memmove(block_, old_block + begin_, end_);
    begin_ = 0;
    const std::size_t room = capacity_ - end_;
    const ssize_t length = read_regular_file(file_.descriptor(), block_ + end_, room);
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

// Where memory is short the small block goes on.
void LineReader::use_large_block()
{
    large_block_.reset(new (std::nothrow) char[large_block_size]);
    if (large_block_ == nullptr)
        return;
    block_ = large_block_.get();
    capacity_ = large_block_size;
}

void BlockWriter::write(std::string_view text)
{
    if (text.size() > sizeof(block_) - size_)
        flush();
    if (text.size() >= sizeof(block_))
        write_out(text);
    else
        size_ += text.copy(block_ + size_, text.size());
}

int BlockWriter::flush()
{
    write_out({block_, size_});
    size_ = 0;
    return error_;
}

void BlockWriter::write_out(std::string_view text)
{
    while (!text.empty() && error_ == 0) {
        const ssize_t size =
            uninterrupted([=] { return ::write(file_.descriptor(), text.data(), text.size()); });
        if (size > 0)
            text.remove_prefix(static_cast<std::size_t>(size));
        else // a file that takes nothing and tells no error never will
            error_ = size == 0 ? EIO : errno;
    }
}
