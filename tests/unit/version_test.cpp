#include "ixfs.h"

#include <gtest/gtest.h>

#include <string>

TEST(Version, IsTheProjects)
{
    EXPECT_STREQ(ixfs_version(), IXFS_PROJECT_VERSION);
}

TEST(Version, OfTheHeaderIsItsNumbers)
{
    EXPECT_EQ(std::to_string(IXFS_VERSION_MAJOR) + '.' + std::to_string(IXFS_VERSION_MINOR) + '.' +
                  std::to_string(IXFS_VERSION_PATCH),
              IXFS_VERSION_STRING);
}

TEST(Version, NumbersCompareAsVersionsDo)
{
    static_assert(IXFS_VERSION_MAKE(1, 0, 0) < IXFS_VERSION_MAKE(1, 0, 1));
    static_assert(IXFS_VERSION_MAKE(1, 0, 999) < IXFS_VERSION_MAKE(1, 1, 0));
    static_assert(IXFS_VERSION_MAKE(1, 999, 999) < IXFS_VERSION_MAKE(2, 0, 0));
    EXPECT_EQ(IXFS_VERSION_NUMBER,
              IXFS_VERSION_MAKE(IXFS_VERSION_MAJOR, IXFS_VERSION_MINOR, IXFS_VERSION_PATCH));
}
