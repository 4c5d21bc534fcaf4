# What a client needs: the library, the public headers, a pkg-config module and a CMake package. All
# are relocatable: they find themselves from where they stand.
include(CMakePackageConfigHelpers)

set(IXFS_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/ixfs")

# Components: "runtime" runs programs, "dev" builds them, "tools" are programs of ours.
install(TARGETS ixfs EXPORT ixfs
    LIBRARY
        DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        COMPONENT runtime
        NAMELINK_COMPONENT dev
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/ixfs")
install(FILES ${IXFS_PUBLIC_HEADERS}
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/ixfs" COMPONENT dev)

install(EXPORT ixfs NAMESPACE ixfs:: FILE ixfs-targets.cmake
    DESTINATION "${IXFS_PACKAGE_DIR}" COMPONENT dev)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/ixfs-config-version.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES cmake/ixfs-config.cmake "${PROJECT_BINARY_DIR}/ixfs-config-version.cmake"
    DESTINATION "${IXFS_PACKAGE_DIR}" COMPONENT dev)

if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}") # the caller's choice; only then not relocatable
    set(IXFS_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" to_prefix "${to_prefix}")
    set(IXFS_PC_PREFIX "\${pcfiledir}/${to_prefix}")
endif()
# An absolute directory stays as it is.
cmake_path(APPEND IXFS_PC_INCLUDEDIR "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
cmake_path(APPEND IXFS_PC_LIBDIR "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
configure_file(cmake/ixfs.pc.in "${PROJECT_BINARY_DIR}/ixfs.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/ixfs.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev)
