// What "ixfsctl status" prints, in its three forms.
#ifndef IXFSCTL_STATUS_REPORT_H
#define IXFSCTL_STATUS_REPORT_H

#include "findings.h"
#include "host_state.h"

#include <string>
#include <vector>

std::string status_text(const HostState& host, const std::vector<Finding>& findings);

// As docs/ixfsctl.schema.json has it.
std::string status_json(const HostState& host, const std::vector<Finding>& findings);

// Gauges for the text file collector of a node exporter.
std::string status_metrics(const HostState& host, const std::vector<Finding>& findings);

#endif
