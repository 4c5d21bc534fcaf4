#include "dry_run.h"

#include "image_plan.h"
#include "json_text.h"
#include "log_text.h"
#include "values.h"

#include <string_view>

namespace
{

using json = nlohmann::ordered_json; // members in the order that they are written in

json as_json(const DiskPlan& disk)
{
    return {{"disk", disk.disk},
            {"descriptor", disk.descriptor},
            {"data", disk.data},
            {"base_name", disk.base_name},
            {"view_descriptor", disk.view_descriptor},
            {"view_data", disk.view_data},
            {"path", disk.path}};
}

json as_json(const Request& request)
{
    const ImagePlan plan = plan_image(request);
    json disks = json::array();
    for (const DiskPlan& disk : plan.disks)
        disks.push_back(as_json(disk));
    return {{"dry_run", true},
            {"remove_view", request.remove_view},
            {"server", request.server},
            {"port", request.port},
            {"schedule", schedule_name(request.schedule_type)},
            {"backup_id", request.backup_id},
            {"image", plan.folder},
            {"view", plan.view_folder},
            {"disks", disks}};
}

std::string line(std::string_view name, const std::string& value)
{
    constexpr std::size_t width = 24;
    std::string text(name);
    text.append(":").resize(width, ' ');
    return text + escape_control_characters(value) + '\n';
}

std::string format(const DiskPlan& disk)
{
    return line("Disk", disk.disk) + line("  descriptor", disk.descriptor) +
           line("  data", disk.data) + line("  name in the view", disk.base_name) +
           line("  descriptor in view", disk.view_descriptor) +
           line("  data in view", disk.view_data) + line("  printed as", disk.path);
}

} // namespace

std::string format_dry_run(const Request& request)
{
    const ImagePlan plan = plan_image(request);
    std::string text = request.remove_view ? "Nothing is removed: this is a dry run.\n"
                                           : "Nothing is mounted: this is a dry run.\n";
    text += line("Server", request.server + ", port " + std::to_string(request.port));
    text += line("Image", plan.folder);
    text += line("View", plan.view_folder);
    for (const DiskPlan& disk : plan.disks)
        text += format(disk);
    return text;
}

std::string format_dry_run_json(const Request& request)
{
    return indented(as_json(request));
}

std::string format_dry_run_json_line(const Request& request)
{
    return on_one_line(as_json(request));
}
