# Defines ixfs::ixfs, the library with its headers.
include("${CMAKE_CURRENT_LIST_DIR}/ixfs-targets.cmake")
