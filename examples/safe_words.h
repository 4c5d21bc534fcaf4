/* What may be given to the library. It runs the mount helper through a shell and quotes nothing. So
 * whatever means more than itself to the shell is refused, and a "-" in front, which the helper would
 * take for an option. Copy this file. */
#ifndef SAFE_WORDS_H
#define SAFE_WORDS_H

#include <stdio.h>
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

/* Of a backup id or a disk, which become paths: whether it stays in the image. */
static inline int stays_below(const char* path)
{
    return strncmp(path, "..", 2) != 0 && strstr(path, "/..") == NULL;
}

struct credentials {
    char mount[512];
    char unmount[512];
};

/* Reads a line of standard input. Returns 0 if it is no credential. */
static inline int read_credential(char* text, int size)
{
    if (fgets(text, size, stdin) == NULL)
        return 0;
    text[strcspn(text, "\n")] = '\0';
    return is_credential(text);
}

static inline int read_credentials(struct credentials* credentials)
{
    return read_credential(credentials->mount, sizeof credentials->mount) &&
           read_credential(credentials->unmount, sizeof credentials->unmount);
}

#endif
