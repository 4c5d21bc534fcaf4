// Log lines that are JSON objects.
#ifndef IXFSCTL_JSON_LINE_H
#define IXFSCTL_JSON_LINE_H

#include <string>

// "<tag>: <message>" of a line such as {"tag": "ixfs_mount()", "message": "ERR - ..."}, whatever
// else is in it; a line of another form as it is.
std::string plain_line(const std::string& line);

#endif
