// A disk descriptor's bytes, in and out.
#ifndef IXFS_DESCRIPTOR_FILE_H
#define IXFS_DESCRIPTOR_FILE_H

#include "bounded_text.h"
#include "open_file.h"

#include <optional>
#include <string_view>
#include <sys/types.h>

// Reads a file line by line, a line that is longer than 1,023 bytes in pieces of that size.
class LineReader
{
public:
    // `size`: the file's size in bytes when it was opened, if that is known. It saves the read that
    // only finds the end, and a file that gets much longer is given up as endless (EFBIG).
    LineReader(OpenFile file, std::optional<off_t> size) : file_(std::move(file)), size_(size) {}

    // Sets `line` to the next line or piece, its newline included, and returns true; false at the
    // end and after an error. The line is valid until the next call.
    bool next(std::string_view& line);

    // 0, or what ended the reading too early.
    int error() const { return error_; }

    void close() { file_.close(); }

private:
    static constexpr std::size_t longest = text_size - 1;

    void fill();

    OpenFile file_;
    std::optional<off_t> size_;
    off_t read_ = 0;             // bytes so far
    char buffer_[4 * text_size]; // no more: a caller may have a small stack
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

    void write(std::string_view text);

    // Writes what is not written yet. Returns 0 if the file took all there was, else the first
    // error.
    int flush();

private:
    OpenFile file_;
    char buffer_[4 * text_size]; // no more: a caller may have a small stack
    std::size_t size_ = 0;
    int error_ = 0;
};

#endif
