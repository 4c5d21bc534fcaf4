#include "result.h"

#include "json_text.h"
#include "log_text.h"

#include <csignal>
#include <cstring>
#include <ixfs.h>
#include <string_view>

namespace
{

using json = nlohmann::ordered_json; // members in the order that they are written in

bool is_good(const Result& result)
{
    return result.status == EC_OK && !result.still_mounted && result.signal == 0;
}

json text_or_null(const std::string& text)
{
    return text.empty() ? json(nullptr) : json(text);
}

json as_json(const Result& result)
{
    const bool good = is_good(result);
    return {{"server", result.server},
            {"backup_id", result.backup_id},
            {"status", result.status},
            {"status_text", result.status_text},
            {"step", good ? json(nullptr) : text_or_null(result.step)},
            {"disk", text_or_null(result.disk)},
            {"helper",
             {{"exit_status",
               result.helper_exit_status ? json(*result.helper_exit_status) : json(nullptr)},
              {"last_lines", result.helper_lines}}},
            {"still_mounted", result.still_mounted},
            {"mount_point", result.still_mounted ? json(result.mount_point) : json(nullptr)},
            {"signal", result.signal != 0 ? json(result.signal) : json(nullptr)},
            {"duration_ms", result.duration.count()},
            {"paths", result.paths},
            {"configuration", result.configuration}};
}

void add_line(std::string& text, std::string_view name, const std::string& value)
{
    if (!value.empty())
        text.append("\n  ").append(name).append(": ").append(escape_control_characters(value));
}

void add_helper(std::string& text, const Result& result)
{
    if (result.helper_exit_status)
        add_line(text, "helper's exit status", std::to_string(*result.helper_exit_status));
    if (result.helper_lines.empty())
        return;
    text.append("\n  helper's last lines:");
    for (const std::string& line : result.helper_lines)
        text.append("\n    ").append(escape_control_characters(line));
}

std::string signal_name(int signal)
{
    const char* const name = sigabbrev_np(signal);
    return name != nullptr ? std::string("SIG") + name : std::to_string(signal);
}

} // namespace

std::string format_text(const Result& result)
{
    std::string text = "View descriptors:\n";
    for (const std::string& path : result.paths)
        text.append("  ").append(path).append("\n");
    text.append("VM configuration:\n").append(result.configuration);
    if (text.back() != '\n')
        text += '\n';
    return text;
}

std::string format_failure(const Result& result)
{
    std::string text = "failed with status " + std::to_string(result.status) + ": " +
                       escape_control_characters(result.status_text);
    if (result.status == EC_OK && result.still_mounted)
        text = "the image is still mounted";
    if (result.signal != 0)
        text.append("; asked to end by ").append(signal_name(result.signal));
    add_line(text, "step", result.step);
    add_line(text, "disk", result.disk);
    add_helper(text, result);
    if (result.still_mounted)
        add_line(text, "still mounted", result.mount_point);
    if (result.status != EC_OK)
        add_line(text, "what to do", "ixfsctl explain " + std::to_string(result.status));
    return text;
}

std::string format_json(const Result& result)
{
    return indented(as_json(result));
}

std::string format_json_line(const Result& result)
{
    return on_one_line(as_json(result));
}

std::string format_json_line(const Summary& summary)
{
    const json counts = {{"prepared", summary.prepared},
                         {"failed", summary.failed},
                         {"not_started", summary.not_started},
                         {"still_mounted", summary.still_mounted},
                         {"duration_ms", summary.duration.count()}};
    return json{{"summary", counts}}.dump() + "\n";
}
