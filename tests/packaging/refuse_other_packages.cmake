# Read before a project of ours is configured: it finds the packages of ALLOWED_PACKAGES, by whatever
# way, and no others, and no program. What packages and CMake itself look for does not count.
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_BINARY_DIR}/modules")

macro(find_package name)
    if("${CMAKE_CURRENT_LIST_FILE}" MATCHES "^${CMAKE_SOURCE_DIR}/" AND
            NOT "${name}" IN_LIST ALLOWED_PACKAGES)
        message(FATAL_ERROR "looks for the package ${name}")
    endif()
    _find_package(${ARGV})
endmacro()

macro(find_program variable)
    if("${CMAKE_CURRENT_LIST_FILE}" MATCHES "^${CMAKE_SOURCE_DIR}/")
        message(FATAL_ERROR "looks for the program ${ARGN}")
    endif()
    _find_program("${variable}" ${ARGN})
endmacro()
