// What a preparation would do, printed instead of done.
#ifndef IXFS_PREPARE_DRY_RUN_H
#define IXFS_PREPARE_DRY_RUN_H

#include "request.h"

#include <string>

// Every path of every disk, for people or as JSON. The request is a checked one.
std::string format_dry_run(const Request& request);
std::string format_dry_run_json(const Request& request);
std::string format_dry_run_json_line(const Request& request);

#endif
