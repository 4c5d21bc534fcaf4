// What a preparation can come to when nothing but its image is wrong.
#ifndef IXFS_TESTS_IMAGE_STATUSES_H
#define IXFS_TESTS_IMAGE_STATUSES_H

#include "ixfs.h"

#include <set>

inline const std::set<int> image_statuses = {EC_OK,
                                             EC_FOLDER_NOT_CREATED,
                                             EC_SYSTEM_ERROR,
                                             EC_FILE_NOT_OPENED,
                                             EC_FILE_NOT_READ,
                                             EC_FILE_NOT_COPIED,
                                             EC_INVALID_PARAMETER,
                                             EC_FILE_NOT_FOUND};

#endif
