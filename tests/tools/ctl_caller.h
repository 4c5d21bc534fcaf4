// A process that uses the library, for the tests of ixfsctl. The test program must not have it
// loaded: ixfsctl would take it for a caller. So a child process loads it, by way of this module.
#ifndef IXFS_TESTS_CTL_CALLER_H
#define IXFS_TESTS_CTL_CALLER_H

extern "C" {

// Each returns a status of the library, or of its last error.
int caller_mount(const char* server); // and leaves it mounted
int caller_lock_view();               // and keeps the lock
int caller_prepare(const char* server, const char* backup_id, const char* const* disks, int count);
}

#endif
