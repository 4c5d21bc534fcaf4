#include "ixfs.h"

const char* ixfs_version(void)
{
    return IXFS_VERSION_STRING;
}
