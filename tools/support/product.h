// Where the product's parts are, and what they are called: fixed, as the library has them.
#ifndef IXFS_TOOLS_PRODUCT_H
#define IXFS_TOOLS_PRODUCT_H

constexpr const char* helper_path = "/usr/varnis/stowline/bin/ixfs";
constexpr const char* mount_base = "/usr/varnis/var/ixfs"; // the mount directories are in it
constexpr const char* mount_mutex_name = "Global\\_IXFS_MOUNT_MUTEX_";
constexpr const char* library_name = "libixfs.so"; // the front of its file's name

#endif
