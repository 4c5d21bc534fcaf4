// What is to be prepared: one VM.
#ifndef IXFS_PREPARE_REQUEST_H
#define IXFS_PREPARE_REQUEST_H

#include "credentials.h"

#include <string>
#include <vector>

struct Request {
    std::string server;
    int port = 0;
    int schedule_type = 0;     // as the library numbers them
    unsigned int timeout = 60; // seconds
    std::string backup_id;
    std::vector<std::string> disks; // in datastore form
    bool new_disk_uuids = false;
    bool remove_view = false; // instead of a preparation: remove the image's view
    Credentials credentials;
};

#endif
