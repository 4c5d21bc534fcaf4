// Log lines as people paste them.
#ifndef IXFSCTL_PASTED_LINE_H
#define IXFSCTL_PASTED_LINE_H

#include <string>

// What a pasted line says: "<tag>: <message>" of a JSON object such as {"tag": "ixfs_mount()",
// "message": "ERR - ..."}, whatever else is in it. Of another line all but colours, quotation marks
// around it, and NULs at its end. Masked and escaped.
std::string log_line(const std::string& line);

#endif
