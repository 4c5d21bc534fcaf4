#include "ixfs.h"

#include <gtest/gtest.h>

TEST(Version, IsTheProjects)
{
    EXPECT_STREQ(ixfs_version(), IXFS_PROJECT_VERSION);
}
