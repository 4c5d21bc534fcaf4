/* What may be given to the library. It runs the mount helper through a shell and quotes nothing. So
 * whatever means more than itself to the shell is refused, and a "-" in front, which the helper would
 * take for an option. */
#ifndef SAFE_WORDS_H
#define SAFE_WORDS_H

#include <string.h>

#define SAFE_CHARACTERS "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._:+@%-"

#define SAFE_WORDS_ARE                                                                             \
    "A server name is a word of letters, digits and ._:+@%-, a credential of those and =/\n"

static inline int is_safe_word(const char* text, const char* allowed, size_t longest)
{
    const size_t length = strlen(text);
    return length > 0 && length <= longest && text[0] != '-' && strspn(text, allowed) == length;
}

/* The server name also becomes the name of a directory. */
static inline int is_server_name(const char* text)
{
    return is_safe_word(text, SAFE_CHARACTERS, 255) && strcmp(text, ".") != 0 &&
           strcmp(text, "..") != 0;
}

static inline int is_credential(const char* text)
{
    return is_safe_word(text, SAFE_CHARACTERS "=/", 384);
}

#endif
