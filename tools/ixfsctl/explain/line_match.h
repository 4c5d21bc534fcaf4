// Finds the row of a log line.
#ifndef IXFSCTL_LINE_MATCH_H
#define IXFSCTL_LINE_MATCH_H

#include "catalogue.h"
#include "pattern.h"

#include <string_view>
#include <vector>

struct LineMatch {
    const LogRow* row;
    const Pattern* pattern; // of the row's text
    Agreement agreement;
    bool is_whole;  // the line ends with the row's whole text
    bool names_tag; // the line holds a tag of the row before it
};

// Whether a message of the library begins in `line`, by its severity.
bool holds_begin_of_message(std::string_view line);

// The rows that `line` can be of, the best first. The line may begin with anything: severity, tag,
// time, host, program. With none that fits as a whole, those that it is a part of.
std::vector<LineMatch> find_rows(std::string_view line);

// The same for a line among others that need not be the library's: only whole lines, and those that
// were cut at the end.
std::vector<LineMatch> find_rows_of_whole_line(std::string_view line);

#endif
