// A disk descriptor's bytes, in and out.
#ifndef IXFS_DESCRIPTOR_FILE_H
#define IXFS_DESCRIPTOR_FILE_H

#include "bounded_text.h"
#include "open_file.h"

#include <memory>
#include <optional>
#include <string_view>
#include <sys/types.h>

// No more: a caller may have a small stack. An ordinary descriptor is shorter.
constexpr std::size_t descriptor_block_size = 4 * text_size;

constexpr std::size_t longest_line = text_size - 1;

// Takes the first line off the front of `lines` and returns it, its newline included. A line that
// is longer than 1,023 bytes comes in pieces of that size, each a line of its own.
inline std::string_view take_line(std::string_view& lines)
{
    const std::string_view front = lines.substr(0, longest_line);
    const std::size_t newline = front.find('\n');
    const std::string_view line =
        newline != std::string_view::npos ? front.substr(0, newline + 1) : front;
    lines.remove_prefix(line.size());
    return line;
}

// Reads a file's lines, many at once.
class LineReader
{
public:
    // `size`: the file's size in bytes when it was opened, if that is known. It saves the read that
    // only finds the end, and a file that gets much longer is given up as endless (EFBIG).
    LineReader(OpenFile file, std::optional<off_t> size) : file_(std::move(file)), size_(size) {}

    // Sets `lines` to the next lines or pieces and returns true; false at the end and after an
    // error. They are whole, for take_line, and valid until the next call.
    bool next(std::string_view& lines);

    // 0, or what ended the reading too early.
    int error() const { return error_; }

    void close() { file_.close(); }

private:
    std::size_t whole_lines() const;
    void fill();
    void use_large_block();

    OpenFile file_;
    std::optional<off_t> size_;
    off_t read_ = 0; // bytes so far
    char small_block_[descriptor_block_size];
    std::unique_ptr<char[]> large_block_; // for a long file
    char* block_ = small_block_;
    std::size_t capacity_ = sizeof(small_block_);
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool at_end_ = false;
    int error_ = 0;
};

// Writes a file. After an error nothing more is written, and flush() returns that error.
class BlockWriter
{
public:
    explicit BlockWriter(OpenFile file) : file_(std::move(file)) {}

    // A long text is written at once, a short one together with others.
    void write(std::string_view text);

    // Writes what is not written yet. Returns 0 if the file took all there was, else the first
    // error.
    int flush();

private:
    void write_out(std::string_view text);

    OpenFile file_;
    char block_[descriptor_block_size];
    std::size_t size_ = 0;
    int error_ = 0;
};

#endif
