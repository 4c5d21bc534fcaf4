# Gives an object library the calls of interpose.h. It must be one, since the calls have to become
# the program's own, wanted by it or not; and the program's symbols must be exported.
function(ixfs_add_interpose target)
    set(folder "${CMAKE_CURRENT_FUNCTION_LIST_DIR}")
    set(calls)
    foreach(name IN ITEMS interpose interpose_files interpose_memory interpose_streams interpose_time)
        list(APPEND calls "${folder}/${name}.cpp")
    endforeach()
    target_sources(${target} PRIVATE ${calls} "${folder}/sanitizer_options.cpp")
    # Some are compiled otherwise than the headers that the others share.
    set_source_files_properties(${calls} "${folder}/sanitizer_options.cpp" PROPERTIES
        SKIP_PRECOMPILE_HEADERS ON)
    target_include_directories(${target} PUBLIC "${folder}")
    target_link_libraries(${target} PUBLIC ixfs::ixfs ${CMAKE_DL_LIBS})
    if(IXFS_SANITIZE)
        # They are called before a sanitizer's runtime is ready.
        set_source_files_properties(${calls} PROPERTIES
            COMPILE_OPTIONS -fno-sanitize=all)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
            target_compile_definitions(${target} PUBLIC IXFS_SANITIZER_DEFINES_NEW)
        endif()
    endif()
endfunction()
