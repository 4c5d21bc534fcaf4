# Gives an object library the calls of interpose.h. It must be one, since the calls have to become
# the program's own, wanted by it or not; and the program's symbols must be exported.
function(ixfs_add_interpose target)
    set(folder "${CMAKE_CURRENT_FUNCTION_LIST_DIR}")
    target_sources(${target} PRIVATE "${folder}/interpose.cpp" "${folder}/sanitizer_options.cpp")
    target_include_directories(${target} PUBLIC "${folder}")
    target_link_libraries(${target} PUBLIC ixfs::ixfs ${CMAKE_DL_LIBS})
    if(IXFS_SANITIZE)
        # Its calls are made before a sanitizer's runtime is ready.
        set_source_files_properties("${folder}/interpose.cpp" PROPERTIES
            COMPILE_OPTIONS -fno-sanitize=all)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
            target_compile_definitions(${target} PUBLIC IXFS_SANITIZER_DEFINES_NEW)
        endif()
    endif()
endfunction()
