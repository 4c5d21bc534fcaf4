// The lines of a file or of standard input.
#ifndef IXFS_PREPARE_TEXT_LINES_H
#define IXFS_PREPARE_TEXT_LINES_H

#include <string>
#include <vector>

struct TextLine {
    std::string text;  // without its CR and LF
    std::string place; // "<name>, line <number>", for messages
};

// All lines that are not empty. `name` "-" means standard input. Throws UsageError when the file
// cannot be read.
std::vector<TextLine> read_lines(const std::string& name);

// A file's name as messages have it.
std::string shown_name(const std::string& name);

#endif
