#include "product.h"
#include "status_report.h"

#include <ctime>
#include <nlohmann/json.hpp>
#include <system_error>

namespace
{

using Json = nlohmann::ordered_json;

Json time_of(const std::optional<std::time_t>& time)
{
    std::tm parts{};
    char text[sizeof("2026-01-31T12:00:00Z")] = "";
    if (!time || gmtime_r(&*time, &parts) == nullptr ||
        std::strftime(text, sizeof(text), "%FT%TZ", &parts) == 0)
        return nullptr;
    return text;
}

Json text_or_null(const std::string& text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

Json json_of(const Process& process)
{
    return {{"pid", process.pid},
            {"parent", process.parent},
            {"state", std::string(1, process.state)},
            {"command", process.command},
            {"user", process.user},
            {"age_seconds", process.age.count()}};
}

Json json_of(const std::vector<Process>& processes)
{
    Json array = Json::array();
    for (const Process& process : processes)
        array.push_back(json_of(process));
    return array;
}

Json json_of(const LockState& state)
{
    const HostLock& lock = state.lock;
    return {{"set", lock.set},
            {"key", static_cast<std::uint32_t>(lock.key)},
            {"creator_uid", lock.creator},
            {"users", lock.users},
            {"ready", lock.ready},
            {"busy", lock.busy},
            {"held", lock.held},
            {"holder_pid", lock.held ? Json(lock.holder) : Json(nullptr)},
            {"holder", state.holder ? json_of(*state.holder) : Json(nullptr)},
            {"waiting", lock.waiting},
            {"waiters", json_of(state.waiters)}};
}

const char* word_for(Backups backups)
{
    switch (backups) {
    case Backups::found:
        return "found";
    case Backups::missing:
        return "missing";
    case Backups::failed:
        return "failed";
    case Backups::no_answer:
        return "no_answer";
    case Backups::not_looked_for:
        break;
    }
    return nullptr;
}

Json json_of(const HostState& host, const MountDirectory& directory)
{
    Json layers = Json::array();
    for (const Mount& layer : directory.layers)
        layers.push_back({{"id", layer.id}, {"type", layer.type}, {"source", layer.source}});
    const bool mounted = !directory.layers.empty();
    const std::optional<bool> stale = host.mounts_are_stale();
    Json json = {{"path", directory.path},
                 {"server", directory.server},
                 {"is_directory", directory.is_directory},
                 {"holds_files", directory.holds_files},
                 {"layers", layers},
                 {"directory_made", time_of(directory.made)}};
    json["backups"] = mounted ? Json(word_for(directory.backups)) : Json(nullptr);
    json["error"] = directory.backups == Backups::failed
                        ? Json(std::generic_category().message(directory.error))
                        : Json(nullptr);
    json["stale"] = !mounted ? Json(false) : stale ? Json(*stale) : Json(nullptr);
    return json;
}

Json json_of(const HelperProcess& helper)
{
    Json json = json_of(helper.process);
    json["orphaned"] = helper.orphaned;
    return json;
}

Json json_of(const Finding& finding)
{
    return {{"id", finding.id}, {"text", finding.text}, {"advice", finding.advice}};
}

} // namespace

std::string status_json(const HostState& host, const std::vector<Finding>& findings)
{
    Json json = {{"time", time_of(host.time)}, {"host", host.host}};
    json["helper"] = {{"path", helper_path},
                      {"runnable", host.helper_problem.empty()},
                      {"problem", text_or_null(host.helper_problem)}};
    json["mount_directories"] = Json::array();
    for (const MountDirectory& directory : host.directories)
        json["mount_directories"].push_back(json_of(host, directory));
    json["mount_mutex"] = host.mount_mutex ? json_of(*host.mount_mutex) : Json(nullptr);
    json["mount_mutex_problem"] = text_or_null(host.mount_mutex_problem);
    json["view_locks"] = Json::array();
    for (const LockState& lock : host.view_locks)
        json["view_locks"].push_back(json_of(lock));
    json["callers"] = json_of(host.callers);
    json["hidden_processes"] = host.hidden_processes;
    json["helper_processes"] = Json::array();
    for (const HelperProcess& helper : host.helpers)
        json["helper_processes"].push_back(json_of(helper));
    json["findings"] = Json::array();
    for (const Finding& finding : findings)
        json["findings"].push_back(json_of(finding));
    // A path or a command line may be no UTF-8.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
