#include "request_line.h"

#include "credentials.h"
#include "helper_argument.h"
#include "log_text.h"
#include "usage_error.h"
#include "values.h"

#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

namespace
{

using Value = nlohmann::json;

std::string text_of(const Value& value)
{
    if (!value.is_string())
        throw UsageError("must be a string");
    return value.get<std::string>();
}

template <typename Number>
Number number_of(const Value& value, Number lowest, Number highest)
{
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() < lowest ||
        value.get<std::uint64_t>() > highest)
        throw UsageError("must be a whole number from " + std::to_string(lowest) + " to " +
                         std::to_string(highest));
    return value.get<Number>();
}

bool flag_of(const Value& value)
{
    if (!value.is_boolean())
        throw UsageError("must be true or false");
    return value.get<bool>();
}

std::vector<std::string> texts_of(const Value& value)
{
    if (!value.is_array() || value.empty())
        throw UsageError("must be an array of strings, and not empty");
    std::vector<std::string> texts;
    for (const Value& text : value)
        texts.push_back(text_of(text));
    return texts;
}

std::string checked(std::string text, std::string (*check)(const std::string&))
{
    const std::string problem = check(text);
    if (!problem.empty())
        throw UsageError(problem);
    return text;
}

int schedule_of(const Value& value)
{
    const int number = schedule_number(text_of(value));
    if (number == -1)
        throw UsageError("must be \"full\" or \"incr\"");
    return number;
}

// Reads the members of a line.
class LineReader
{
public:
    explicit LineReader(const Request& defaults) { line_.request = defaults; }

    RequestLine read(const Value& object)
    {
        for (const auto& [name, value] : object.items())
            take(name, value);
        take_credentials();
        return std::move(line_);
    }

private:
    using Take = void (LineReader::*)(const Value&);

    void server(const Value& value)
    {
        line_.request.server = checked(text_of(value), check_server_name);
    }
    void port(const Value& value)
    {
        line_.request.port =
            static_cast<int>(number_of<unsigned int>(value, lowest_port, highest_port));
    }
    void schedule(const Value& value) { line_.request.schedule_type = schedule_of(value); }
    void backup_id(const Value& value)
    {
        line_.request.backup_id = checked(text_of(value), check_backup_id);
    }
    void disks(const Value& value)
    {
        line_.request.disks = texts_of(value);
        line_.has_disks = true;
    }
    void new_disk_uuids(const Value& value) { line_.request.new_disk_uuids = flag_of(value); }
    void timeout(const Value& value)
    {
        line_.request.timeout = number_of(value, 0U, std::numeric_limits<unsigned int>::max());
    }
    void mount_cred(const Value& value) { credentials_.mount = text_of(value); }
    void unmount_cred(const Value& value) { credentials_.unmount = text_of(value); }
    void mount_cred_file(const Value& value) { files_.mount_file = text_of(value); }
    void unmount_cred_file(const Value& value) { files_.unmount_file = text_of(value); }

    void take(const std::string& name, const Value& value)
    {
        static const std::map<std::string, Take> members = {
            {"server", &LineReader::server},
            {"port", &LineReader::port},
            {"schedule", &LineReader::schedule},
            {"backup_id", &LineReader::backup_id},
            {"disks", &LineReader::disks},
            {"new_disk_uuids", &LineReader::new_disk_uuids},
            {"timeout", &LineReader::timeout},
            {"mount_cred", &LineReader::mount_cred},
            {"unmount_cred", &LineReader::unmount_cred},
            {"mount_cred_file", &LineReader::mount_cred_file},
            {"unmount_cred_file", &LineReader::unmount_cred_file}};
        const auto member = members.find(name);
        if (member == members.end())
            throw UsageError("unknown member \"" + escape_control_characters(name) + "\"");
        try {
            (this->*member->second)(value);
        } catch (const UsageError& error) {
            throw UsageError(name + ": " + error.what());
        }
    }

    // Both of the line, or both of the defaults.
    void take_credentials()
    {
        if (credentials_.mount.empty() != credentials_.unmount.empty())
            throw UsageError("mount_cred and unmount_cred must be given together");
        if (files_.mount_file.empty() != files_.unmount_file.empty())
            throw UsageError("mount_cred_file and unmount_cred_file must be given together");
        line_.has_credentials = !credentials_.mount.empty();
        const bool has_files = !files_.mount_file.empty();
        if (line_.has_credentials && has_files)
            throw UsageError("credentials must be given in files or in the line, not in both");
        if (line_.has_credentials)
            line_.request.credentials = credentials_;
        else if (has_files)
            line_.request.credentials = read_credentials(files_);
    }

    RequestLine line_;
    Credentials credentials_;
    CredentialSource files_;
};

Value parse(const std::string& text)
{
    std::set<std::string> names;
    bool twice = false;
    const auto look = [&](int depth, Value::parse_event_t event, const Value& name) {
        if (event == Value::parse_event_t::key && depth == 1)
            twice = !names.insert(name.get<std::string>()).second || twice;
        return true;
    };
    // The parser's own message may show what it has read, such as a credential.
    Value object = Value::parse(text, look, false);
    if (!object.is_object())
        throw UsageError("is no JSON object");
    if (twice) // the parser takes the last
        throw UsageError("has a member twice");
    return object;
}

} // namespace

RequestLine parse_request_line(const std::string& text, const Request& defaults)
{
    return LineReader(defaults).read(parse(text));
}
