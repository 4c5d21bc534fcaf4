#include "base_names.h"
#include "log.h"

#include <iterator>

namespace
{

// Fills all that follows from a record's datastoreDescPath. `make_unique` gives the base name its
// number where it needs one. A failure is logged and thrown on; fields already filled stay.
template <typename MakeUnique>
void populate(_ixfs_control_t* handle, const LmfString& view_path, VmirPath& record,
              MakeUnique make_unique)
{
    try {
        buildDatastore(record.datastoreDescPath, record.datastore);
        buildOriginalDescPath(record.datastoreDescPath, record.originalDescPath);
        buildOriginalVmdkPath(record.originalDescPath, record.originalVmdkPath);
        buildBaseName(record.datastoreDescPath, record.baseName);
        make_unique(record.baseName);
        buildViewDescPath(view_path, record.baseName, record.viewDescPath);
        buildViewVmdkPath(view_path, record.baseName, record.viewVmdkPath);
        buildDatastoreViewDescPath(record.datastore, record.viewDescPath,
                                   record.datastoreViewDescPath);
    } catch (const EcStatusException& failure) {
        Log(handle, "populateVmirPath")
            .error("ERR - Failed to build vmdk paths for file: %s\n", failure.what());
        throw;
    }
}

} // namespace

void buildVmirPathVectorFromCharArray(std::vector<std::string>& entries,
                                      std::vector<VmirPath>& records)
{
    records.clear();
    records.resize(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i)
        records[i].datastoreDescPath =
            LmfString(entries[i].data(), entries[i].size(), StringConverter::getUtf8CodePage(), 0);
}

void populateVmirPath(_ixfs_control_t* handle, std::set<LmfString>& usedBaseNames,
                      LmfString& viewPath, VmirPath& record)
{
    populate(handle, viewPath, record,
             [&](LmfString& name) { ensureUniquenessOfBasename(usedBaseNames, name); });
}

void populateVmirPathVector(_ixfs_control_t* handle, std::vector<std::string>& entries,
                            LmfString& viewPath, std::vector<VmirPath>& records)
{
    BaseNames base_names;
    buildVmirPathVectorFromCharArray(entries, records);
    for (VmirPath& record : records)
        populate(handle, viewPath, record, [&](LmfString& name) { base_names.make_unique(name); });
}

void convertVmdkPathsListToCharArrays(const std::vector<VmirPath>& records,
                                      std::vector<std::string>& out)
{
    std::vector<std::string> paths; // memory that runs short must leave `out` alone
    paths.reserve(records.size());
    for (const VmirPath& record : records)
        paths.emplace_back(record.datastoreViewDescPath.utf8_str());
    out.reserve(records.size()); // in all; beyond that the vector grows at its own pace
    out.insert(out.end(), std::make_move_iterator(paths.begin()),
               std::make_move_iterator(paths.end()));
}
