// What is to be done: one VM to be prepared, or its view to be removed.
#ifndef IXFS_PREPARE_REQUEST_H
#define IXFS_PREPARE_REQUEST_H

#include <string>
#include <vector>

struct Credentials {
    std::string mount;
    std::string unmount;
};

struct Request {
    std::string server;
    int port = 0;
    int schedule_type = 0;     // as the library numbers them
    unsigned int timeout = 60; // seconds
    std::string backup_id;
    std::vector<std::string> disks; // in datastore form
    bool new_disk_uuids = false;
    bool remove_view = false;
    Credentials credentials;
};

#endif
