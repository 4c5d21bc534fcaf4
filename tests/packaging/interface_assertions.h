/* Compile-time assertions about an interface, in C11 and in C++17. */
#ifndef IXFS_TESTS_INTERFACE_ASSERTIONS_H
#define IXFS_TESTS_INTERFACE_ASSERTIONS_H

#include <stddef.h>

#ifdef __cplusplus
#include <type_traits>
#define ASSERT_THAT(condition) static_assert(condition, #condition)
#define HAS_TYPE(expression, type) (std::is_same<decltype(expression), type>::value)
#else
#define ASSERT_THAT(condition) _Static_assert(condition, #condition)
#define HAS_TYPE(expression, type) _Generic((expression), type : 1, default : 0)
#endif

#define ASSERT_VALUE(constant, value) ASSERT_THAT((constant) == (value))

/* The size of a record in bytes; where a field lies in it, and its type, which has to be a name. */
#define ASSERT_SIZE(record, size) ASSERT_THAT(sizeof(record) == (size))
#define ASSERT_FIELD(record, field, type, offset)                                                  \
    ASSERT_THAT(offsetof(record, field) == (offset));                                              \
    ASSERT_THAT(HAS_TYPE(&((record*)0)->field, type*))

/* A function's result and, in parentheses, its parameters. */
#define ASSERT_FUNCTION(name, result, parameters)                                                  \
    ASSERT_THAT(HAS_TYPE(&(name), result(*) parameters))

#endif
