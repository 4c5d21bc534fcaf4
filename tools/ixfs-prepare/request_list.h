// The list of VMs of --from: JSON lines, one VM each. README.md tells their members.
#ifndef IXFS_PREPARE_REQUEST_LIST_H
#define IXFS_PREPARE_REQUEST_LIST_H

#include "image_plan.h"
#include "request.h"

#include <string>
#include <vector>

// Reads and checks a list; `name` "-" means standard input. `defaults` holds what a line may leave
// out, as in Options::request, with credentials that are empty where there are none, and
// `name_of_default` the names of its disks. Throws UsageError with file and line; it never holds a
// credential, nor what stands in a line that is no JSON.
std::vector<Request> read_request_list(const std::string& name, const Request& defaults,
                                       const DiskName& name_of_default);

#endif
