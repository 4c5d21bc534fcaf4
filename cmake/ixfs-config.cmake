# Defines ixfs::ixfs, the library with its headers. There are no components to ask for.
foreach(component IN LISTS ixfs_FIND_COMPONENTS)
    if(ixfs_FIND_REQUIRED_${component})
        set(ixfs_FOUND FALSE)
        set(ixfs_NOT_FOUND_MESSAGE "libixfs has no component ${component}")
        return()
    endif()
endforeach()
include("${CMAKE_CURRENT_LIST_DIR}/ixfs-targets.cmake")
