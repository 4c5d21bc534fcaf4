#include "records.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace
{

using Size = std::uint64_t;
using Clock = std::chrono::system_clock;

// Both ends are the same program on the same host, so numbers are as the processor has them.
class Writer
{
public:
    Writer() { text_.resize(sizeof(Size)); } // the record's length, known at its end

    Writer& number(std::int64_t value)
    {
        text_.append(reinterpret_cast<const char*>(&value), sizeof(value));
        return *this;
    }
    Writer& text(std::string_view value)
    {
        number(static_cast<std::int64_t>(value.size()));
        text_ += value;
        return *this;
    }
    Writer& texts(const std::vector<std::string>& values)
    {
        number(static_cast<std::int64_t>(values.size()));
        for (const std::string& value : values)
            text(value);
        return *this;
    }
    Writer& mounts(const std::vector<Mount>& values)
    {
        number(static_cast<std::int64_t>(values.size()));
        for (const Mount& mount : values) {
            number(mount.id).number(mount.parent);
            text(mount.device).text(mount.point).text(mount.type).text(mount.source);
        }
        return *this;
    }
    std::string finish()
    {
        const Size length = text_.size() - sizeof(Size);
        std::memcpy(text_.data(), &length, sizeof(length));
        return std::move(text_);
    }

private:
    std::string text_;
};

class Reader
{
public:
    explicit Reader(std::string_view text) : text_(text) {}

    std::int64_t number()
    {
        std::int64_t value = 0;
        std::memcpy(&value, piece(sizeof(value)).data(), sizeof(value));
        return value;
    }
    int integer() { return static_cast<int>(number()); }
    std::string text() { return std::string(piece(static_cast<std::size_t>(number()))); }
    std::vector<std::string> texts()
    {
        std::vector<std::string> values;
        for (std::int64_t left = number(); left > 0; --left)
            values.push_back(text());
        return values;
    }
    std::vector<Mount> mounts()
    {
        std::vector<Mount> values;
        for (std::int64_t left = number(); left > 0; --left) {
            Mount mount;
            mount.id = integer();
            mount.parent = integer();
            mount.device = text();
            mount.point = text();
            mount.type = text();
            mount.source = text();
            values.push_back(std::move(mount));
        }
        return values;
    }

private:
    std::string_view piece(std::size_t size)
    {
        if (size > text_.size())
            throw std::runtime_error("the worker process sent a record that cannot be read");
        const std::string_view piece = text_.substr(0, size);
        text_.remove_prefix(size);
        return piece;
    }

    std::string_view text_;
};

void write(Writer& writer, const LogLine& line)
{
    writer.number(line.time.time_since_epoch().count());
    writer.number(line.severity).text(line.tag).text(line.message);
}

void write(Writer& writer, const OwnMounts& mounts)
{
    writer.mounts(mounts.before).mounts(mounts.made).texts(mounts.folders);
    writer.number(mounts.exchanged);
}

void write(Writer& writer, const Outcome& outcome)
{
    writer.number(outcome.status).text(outcome.status_text).texts(outcome.paths);
    writer.text(outcome.configuration);
}

LogLine read_log_line(Reader& reader)
{
    LogLine line;
    line.time = Clock::time_point(Clock::duration(reader.number()));
    line.severity = reader.integer();
    line.tag = reader.text();
    line.message = reader.text();
    return line;
}

OwnMounts read_own_mounts(Reader& reader)
{
    OwnMounts mounts;
    mounts.before = reader.mounts();
    mounts.made = reader.mounts();
    mounts.folders = reader.texts();
    mounts.exchanged = reader.integer();
    return mounts;
}

Outcome read_outcome(Reader& reader)
{
    Outcome outcome;
    outcome.status = reader.integer();
    outcome.status_text = reader.text();
    outcome.paths = reader.texts();
    outcome.configuration = reader.text();
    return outcome;
}

Record read_record(Reader reader)
{
    switch (reader.number()) {
    case 0:
        return read_log_line(reader);
    case 1:
        return read_own_mounts(reader);
    default:
        return read_outcome(reader);
    }
}

} // namespace

std::string encode(const Record& record)
{
    Writer writer;
    writer.number(static_cast<std::int64_t>(record.index()));
    std::visit([&](const auto& value) { write(writer, value); }, record);
    return writer.finish();
}

std::optional<Record> RecordReader::next()
{
    Size length = 0;
    if (pending_.size() < sizeof(length))
        return std::nullopt;
    std::memcpy(&length, pending_.data(), sizeof(length));
    if (pending_.size() - sizeof(length) < length)
        return std::nullopt;
    const Record record =
        read_record(Reader(std::string_view(pending_).substr(sizeof(length), length)));
    pending_.erase(0, sizeof(length) + length);
    return record;
}
