// The order of a record's fields where it cannot be told without a record.
#include "ixfs_vmir.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace
{

TEST(VmirPathOrder, FieldsFollowOneAnother)
{
    const VmirPath record;
    const std::vector<const LmfString*> fields{
        &record.datastoreDescPath, &record.datastore,
        &record.originalDescPath,  &record.originalVmdkPath,
        &record.baseName,          &record.viewDescPath,
        &record.viewVmdkPath,      &record.datastoreViewDescPath};
    const auto* const begin = reinterpret_cast<const std::byte*>(&record);
    for (std::size_t i = 0; i < fields.size(); ++i)
        EXPECT_EQ(reinterpret_cast<const std::byte*>(fields[i]), begin + i * sizeof(LmfString))
            << i;
}

} // namespace
