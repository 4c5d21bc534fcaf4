// Which values are taken, wherever they stand: on the command line or in a list of VMs.
#ifndef IXFS_PREPARE_VALUES_H
#define IXFS_PREPARE_VALUES_H

#include <string>

constexpr int lowest_port = 1;
constexpr int highest_port = 65535;

// The library's number of a schedule, "full" or "incr"; -1 for any other text.
int schedule_number(const std::string& name);
std::string schedule_name(int number);

// What is wrong with a backup id, or an empty text: the library must find a client and a time in
// it, and the client becomes the name of a folder.
std::string check_backup_id(const std::string& value);

#endif
