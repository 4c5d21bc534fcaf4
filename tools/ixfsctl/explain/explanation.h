// What is told about a status or a log line.
#ifndef IXFSCTL_EXPLANATION_H
#define IXFSCTL_EXPLANATION_H

#include "catalogue.h"
#include "line_match.h"

#include <string>
#include <string_view>
#include <vector>

// By its number, its name or its text; null where there is none.
const StatusRow* find_status(std::string_view subject);

// The status that a line tells as "status 29" or "status": 29; null where it tells none.
const StatusRow* find_status_in(std::string_view line);

// Whole lines of 80 columns at most, but for words that are longer.
std::string explain(const StatusRow& status);

// The best match, and what else the line may be. `count` is how often it was seen.
std::string explain(const std::vector<LineMatch>& matches, int count = 1);

// The message with its values; errno numbers and statuses with their names.
std::string message_of(const LineMatch& match);

// Whether somebody has to do something about it.
bool tells_of_problem(const LogRow& row);

// Whether it is normal, but tells what to do if it is the last line of a log.
bool tells_of_waiting(const LogRow& row);

#endif
