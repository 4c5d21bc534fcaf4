#include "requests.h"

#include "credentials.h"
#include "image_plan.h"
#include "request_list.h"
#include "text_lines.h"
#include "usage_error.h"

#include <cstddef>
#include <utility>

namespace
{

// The disks of --disk, and behind them those of --disks-from; and what messages call them.
class Disks
{
public:
    explicit Disks(const Options& options)
        : disks_(options.request.disks), of_command_line_(disks_.size())
    {
        if (!options.disks_from.empty())
            lines_ = read_lines(options.disks_from);
        for (const TextLine& line : lines_)
            disks_.push_back(line.text);
    }

    const std::vector<std::string>& list() const { return disks_; }

    DiskName names() const
    {
        return [this](std::size_t index) {
            return index < of_command_line_ ? disk_number(index)
                                            : lines_.at(index - of_command_line_).place;
        };
    }

private:
    std::vector<std::string> disks_;
    std::size_t of_command_line_;
    std::vector<TextLine> lines_;
};

} // namespace

std::vector<Request> read_requests(const Options& options)
{
    const Disks disks(options);
    Request request = options.request;
    request.disks = disks.list();
    request.credentials = read_credentials(options.credentials);
    if (!options.from.empty())
        return read_request_list(options.from, request, disks.names());
    if (request.disks.empty() && !request.remove_view)
        throw UsageError(shown_name(options.disks_from) + ": holds no disk");
    plan_image(request, disks.names());
    check_credentials(request.credentials, request.server);
    return {std::move(request)};
}
