// The command line.
#ifndef IXFS_PREPARE_OPTIONS_H
#define IXFS_PREPARE_OPTIONS_H

#include <string>
#include <vector>

struct Options {
    std::string server;
    int port = 0;
    int schedule_type = 0; // as the library numbers them
    unsigned int timeout = 60;
    std::string backup_id;
    std::vector<std::string> disks;
    bool new_disk_uuids = false;

    std::string mount_cred_file; // both empty when the credentials come from standard input
    std::string unmount_cred_file;

    bool json = false;
    bool quiet = false;

    std::string information; // text of --help or --version; where it is set nothing else is
};

// Reads and checks the command line. Throws UsageError.
Options parse_options(int argc, char** argv);

#endif
