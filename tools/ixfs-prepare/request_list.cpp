#include "request_list.h"

#include "credentials.h"
#include "request_line.h"
#include "text_lines.h"
#include "usage_error.h"

#include <map>
#include <sys/stat.h>
#include <utility>

namespace
{

// A credential in a list that everybody can read is none. Pipes have no such bits.
void check_secrecy(const std::string& name)
{
    struct stat status = {};
    if (name != "-" && stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & S_IROTH) != 0)
        throw UsageError("credentials in a file that all users can read; run chmod o-r, or give "
                         "them as mount_cred_file and unmount_cred_file");
}

void require(bool given, const char* member)
{
    if (!given)
        throw UsageError(member + std::string(" is missing"));
}

void check_complete(const Request& request)
{
    require(!request.server.empty(), "server");
    require(request.port != 0, "port");
    require(request.schedule_type != -1, "schedule");
    require(!request.backup_id.empty(), "backup_id");
    require(!request.disks.empty(), "disks");
    require(!request.credentials.mount.empty(), "mount_cred_file or mount_cred");
}

// Takes one line after another.
class RequestList
{
public:
    RequestList(const std::string& name, const Request& defaults, const DiskName& name_of_default)
        : name_(name), defaults_(defaults), name_of_default_(name_of_default)
    {
    }

    void add(const TextLine& line)
    {
        RequestLine parsed = parse_request_line(line.text, defaults_);
        if (parsed.has_credentials)
            check_secrecy(name_);
        check_complete(parsed.request);
        check_credentials(parsed.request.credentials, parsed.request.server);
        const ImagePlan plan =
            plan_image(parsed.request, parsed.has_disks ? DiskName(disk_number) : name_of_default_);
        const auto [first, is_new] =
            images_.try_emplace({parsed.request.server, plan.folder}, line.place);
        if (!is_new)
            throw UsageError("the same image as " + first->second + "; both would share one view");
        requests_.push_back(std::move(parsed.request));
    }

    std::vector<Request> requests() && { return std::move(requests_); }

private:
    const std::string& name_;
    const Request& defaults_;
    const DiskName& name_of_default_;
    std::map<std::pair<std::string, std::string>, std::string> images_; // to their lines
    std::vector<Request> requests_;
};

} // namespace

std::vector<Request> read_request_list(const std::string& name, const Request& defaults,
                                       const DiskName& name_of_default)
{
    RequestList list(name, defaults, name_of_default);
    const std::vector<TextLine> lines = read_lines(name);
    if (lines.empty())
        throw UsageError(shown_name(name) + ": holds no VM");
    for (const TextLine& line : lines) {
        try {
            list.add(line);
        } catch (const UsageError& error) {
            throw UsageError(line.place + ": " + error.what());
        }
    }
    return std::move(list).requests();
}
