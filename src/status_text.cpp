#include "ixfs.h"

const char* ixfs_status_text(int status)
{
    switch (status) {
    case EC_OK:
        return "success";
    case EC_FOLDER_NOT_CREATED:
        return "folder could not be created";
    case EC_NO_MEMORY:
        return "out of memory";
    case EC_SYSTEM_ERROR:
        return "system call failed";
    case EC_FILE_NOT_OPENED:
        return "file could not be opened";
    case EC_FILE_NOT_READ:
        return "file could not be read";
    case EC_FILE_NOT_COPIED:
        return "file could not be copied";
    case EC_INVALID_PARAMETER:
        return "invalid parameter";
    case EC_SERVER_BUSY:
        return "server too busy";
    case EC_HELPER_FAILED:
        return "mount helper failed";
    case EC_MOUNT_DIRECTORY:
        return "mount directory could not be created";
    case EC_VIEW_NOT_CREATED:
        return "view could not be created";
    case EC_NO_HANDLE:
        return "no handle could be created";
    case EC_FILE_NOT_FOUND:
        return "file not found";
    case EC_VIEW_NOT_LOCKED:
        return "view lock not obtained";
    case EC_INVALID_SCHEDULE:
        return "invalid schedule type";
    case EC_ALREADY_MOUNTED:
        return "already mounted";
    default:
        return nullptr;
    }
}
