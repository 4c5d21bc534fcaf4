// One line of a list of VMs.
#ifndef IXFS_PREPARE_REQUEST_LINE_H
#define IXFS_PREPARE_REQUEST_LINE_H

#include "request.h"

#include <string>

struct RequestLine {
    Request request;
    bool has_disks = false;       // of its own, not the defaults'
    bool has_credentials = false; // in the line itself, not in files
};

// Reads a JSON object over `defaults`; each value is checked alone. Reads the files of credentials
// that it names. Throws UsageError that names the member, or only says that the line is no JSON.
RequestLine parse_request_line(const std::string& text, const Request& defaults);

#endif
