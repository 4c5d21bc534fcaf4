#include "image_layout.h"
#include "path_text.h"

#include <string_view>
#include <utility>

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
std::string_view without_snapshot_suffix(std::string_view stem)
{
    constexpr std::size_t suffix_length = 6;
    const std::size_t dash = stem.rfind('-');
    if (dash == std::string_view::npos || stem.size() - dash - 1 != suffix_length)
        return stem;
    return stem.substr(0, dash);
}

std::string path_in_view(const LmfString& view_path, const LmfString& base_name, const char* ending)
{
    return joined_path(view_path.text().c_str(), (base_name.text() + ending).c_str());
}

} // namespace

void buildDatastore(const LmfString& in, LmfString& out)
{
    const std::size_t bracket = found(in.text().find(']'), "buildDatastore");
    out.text().assign(in.text(), 0, bracket + 1);
}

void buildOriginalDescPath(const LmfString& in, LmfString& out)
{
    constexpr char function[] = "buildOriginalDescPath";
    // A datastore's own name may hold "backups", so the search begins behind it.
    const std::size_t bracket = found(in.text().find(']'), function);
    const std::size_t start = found(in.text().find(backupsPathElement.text(), bracket), function);
    out.text().assign(in.text(), start);
}

void buildOriginalVmdkPath(const LmfString& in, LmfString& out)
{
    const std::size_t ending =
        found(in.text().rfind(dotDescFileType.text()), "buildOriginalVmdkPath");
    out.text().assign(in.text(), 0, ending);
}

void buildBaseName(const LmfString& in, LmfString& out)
{
    const std::string_view name = last_segment_of(in.text().c_str());
    const std::size_t ending = found(name.rfind(dotVmdkDotDescFileType.text()), "buildBaseName");
    out.text() = std::string(without_snapshot_suffix(name.substr(0, ending)));
}

void buildViewDescPath(const LmfString& viewPath, const LmfString& baseName, LmfString& out)
{
    out.text() = path_in_view(viewPath, baseName, ".vmdk");
}

void buildViewVmdkPath(const LmfString& viewPath, const LmfString& baseName, LmfString& out)
{
    out.text() = path_in_view(viewPath, baseName, "-flat.vmdk");
}

void buildDatastoreViewDescPath(const LmfString& datastore, const LmfString& viewDescPath,
                                LmfString& out)
{
    std::string path; // a new text: `out` may be one of the parts
    path.reserve(datastore.text().size() + 1 + viewDescPath.text().size());
    path.append(datastore.text()).append(1, ' ').append(viewDescPath.text());
    out.text() = std::move(path);
}

LmfPathname convertUnixPathToPlatformPath(const LmfString& base, const LmfString& relative)
{
    LmfPathname path;
    path.text() = joined_path(base.text().c_str(), relative.text().c_str());
    return path;
}
