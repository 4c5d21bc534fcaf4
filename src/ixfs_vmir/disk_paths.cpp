#include "image_layout.h"

namespace
{

// Returns a found position; throws in the name of `function` where nothing was found.
std::size_t found(std::size_t position, const char* function)
{
    if (position == std::string::npos)
        throw EcStatusException(EC_INVALID_PARAMETER, function);
    return position;
}

// A disk that was written to while snapshots existed has a name such as "disk-000001". Any six
// characters count as such a number, so "web-abcdef" loses them as well.
std::string without_snapshot_suffix(const std::string& stem)
{
    constexpr std::size_t suffix_length = 6;
    const std::size_t dash = stem.rfind('-');
    if (dash == std::string::npos || stem.size() - dash - 1 != suffix_length)
        return stem;
    return stem.substr(0, dash);
}

std::string path_in_view(const LmfString& view_path, const LmfString& base_name, const char* ending)
{
    LmfPathname path;
    path.makeFilename(view_path.text().c_str(), false);
    path.makeFilename((base_name.text() + ending).c_str(), true);
    return path.text();
}

} // namespace

void buildDatastore(const LmfString& in, LmfString& out)
{
    const std::size_t bracket = found(in.text().find(']'), "buildDatastore");
    out = in.text().substr(0, bracket + 1);
}

void buildOriginalDescPath(const LmfString& in, LmfString& out)
{
    constexpr char function[] = "buildOriginalDescPath";
    // A datastore's own name may hold "backups", so the search begins behind it.
    const std::size_t bracket = found(in.text().find(']'), function);
    const std::size_t start = found(in.text().find(backupsPathElement.text(), bracket), function);
    out = in.text().substr(start);
}

void buildOriginalVmdkPath(const LmfString& in, LmfString& out)
{
    const std::size_t ending =
        found(in.text().rfind(dotDescFileType.text()), "buildOriginalVmdkPath");
    out = in.text().substr(0, ending);
}

void buildBaseName(const LmfString& in, LmfString& out)
{
    LmfPathname path;
    path.makeFilename(in.text().c_str(), false);
    const char* const last_segment = path.last_segment();
    const std::string name = last_segment != nullptr ? last_segment : "";
    const std::size_t ending = found(name.rfind(dotVmdkDotDescFileType.text()), "buildBaseName");
    out = without_snapshot_suffix(name.substr(0, ending));
}

void buildViewDescPath(const LmfString& viewPath, const LmfString& baseName, LmfString& out)
{
    out = path_in_view(viewPath, baseName, ".vmdk");
}

void buildViewVmdkPath(const LmfString& viewPath, const LmfString& baseName, LmfString& out)
{
    out = path_in_view(viewPath, baseName, "-flat.vmdk");
}

void buildDatastoreViewDescPath(const LmfString& datastore, const LmfString& viewDescPath,
                                LmfString& out)
{
    out = datastore.text() + ' ' + viewDescPath.text();
}

LmfPathname convertUnixPathToPlatformPath(const LmfString& base, const LmfString& relative)
{
    LmfPathname path;
    path.makeFilename(base.text().c_str(), false);
    path.makeFilename(relative.text().c_str(), true);
    return path;
}
