// What a preparation came to, as text for people and as JSON.
#ifndef IXFS_PREPARE_RESULT_H
#define IXFS_PREPARE_RESULT_H

#include <ixfs.h>

#include <string>
#include <vector>

struct Result {
    ec_status status = EC_OK;
    std::string status_text;
    std::vector<std::string> paths; // the view's descriptors in datastore form
    std::string configuration;      // may be there also after a failure
};

// The paths, and behind them the configuration, both byte for byte.
std::string format_text(const Result& result);

// A JSON object; README.md tells its members.
std::string format_json(const Result& result);

#endif
