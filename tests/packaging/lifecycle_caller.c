/* Makes a handle and ends it, which needs no server: to see that a program finds the library. */
#include <ixfs.h>

#include <stddef.h>

int main(void)
{
    _ixfs_control_t* const handle = ixfs_init(0, NULL, NULL, NULL, NULL);
    const int is_invalid = _ixfs_is_invalid(handle);
    ixfs_term(handle);
    return is_invalid;
}
