# Warnings, hardening and sanitizers, for every target of ours. The presets make warnings errors.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(IXFS_WARNINGS -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wundef -Wcast-align
    -Wformat=2 -Wnull-dereference -Wpointer-arith)
set(IXFS_CXX_WARNINGS -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual -Wextra-semi)
set(IXFS_GCC_WARNINGS -Wduplicated-cond -Wduplicated-branches -Wlogical-op)

# What stops an attacker whom a fault let in: changed return addresses, indirect calls to where none
# leads, a stack that jumps over its guard page, tables written after the start, code on the stack.
set(IXFS_HARDENING -fstack-protector-strong -fstack-clash-protection -fcf-protection)
set(IXFS_LINK_HARDENING "LINKER:-z,relro" "LINKER:-z,now" "LINKER:-z,noexecstack")

# A folder whose programs are built more often than they run long sets IXFS_QUICK_TO_BUILD: they do
# without what takes the compiler's time: optimisation, the checks for undefined behaviour and, but in
# the debug build, what a debugger knows beyond lines.
function(ixfs_compiler_options target)
    target_compile_options(${target} PRIVATE
        ${IXFS_WARNINGS}
        "$<$<COMPILE_LANGUAGE:CXX>:${IXFS_CXX_WARNINGS}>"
        "$<$<OR:$<COMPILE_LANG_AND_ID:C,GNU>,$<COMPILE_LANG_AND_ID:CXX,GNU>>:${IXFS_GCC_WARNINGS}>"
        ${IXFS_HARDENING})
    target_link_options(${target} PRIVATE ${IXFS_LINK_HARDENING})
    if(IXFS_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${IXFS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${IXFS_SANITIZE})
        # The sanitizers' runtime comes with the program, not with the library.
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "SHARED_LIBRARY")
            target_link_options(${target} PRIVATE "LINKER:-z,undefs")
        endif()
    elseif(IXFS_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
        target_link_options(${target} PRIVATE --coverage)
    elseif(NOT IXFS_QUICK_TO_BUILD)
        # It needs an optimising build, and a packager's own choice would be a redefinition.
        target_compile_options(${target} PRIVATE
            "$<$<NOT:$<CONFIG:Debug,>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    endif()
    if(IXFS_QUICK_TO_BUILD)
        target_compile_options(${target} PRIVATE
            -O0 -fno-sanitize=undefined "$<$<CONFIG:RelWithDebInfo>:-g1>")
    endif()
endfunction()
