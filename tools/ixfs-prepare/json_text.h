// JSON as text, also where a string in it is not UTF-8.
#ifndef IXFS_PREPARE_JSON_TEXT_H
#define IXFS_PREPARE_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <string>

// On many lines, or on one; with a newline at the end. `object` gets a last member "lossy": whether
// bytes that are not UTF-8, as all JSON must be, had to be replaced by U+FFFD.
std::string indented(nlohmann::ordered_json object);
std::string on_one_line(nlohmann::ordered_json object);

#endif
