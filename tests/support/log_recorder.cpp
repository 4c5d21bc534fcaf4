#include "log_recorder.h"

#include "interpose.h"
#include "log_catalogue.h"
#ifdef IXFS_BUILDS_TOOLS
#include "line_match.h"
#endif

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <utility>

namespace
{

std::atomic<LogRecorder*> current{nullptr};
std::atomic<const InventedLines*> invented{nullptr};

const char* severity_name(int severity)
{
    switch (severity) {
    case IXFS_LOG_ERR:
        return "IXFS_LOG_ERR";
    case IXFS_LOG_WRN:
        return "IXFS_LOG_WRN";
    case IXFS_LOG_INF:
        return "IXFS_LOG_INF";
    default:
        return "no severity";
    }
}

// That ixfsctl, which is given the line as ixfs-prepare prints it, knows it by the same row.
#ifdef IXFS_BUILDS_TOOLS
void expect_explained(int severity, const std::string& tag, const std::string& message)
{
    const std::string printed = severity_name(severity) + (" " + tag) + ": " + message;
    const std::string_view text = LogCatalogue::of_the_project().text_for(tag, message);
    const std::vector<LineMatch> found = find_rows(printed);
    if (found.empty() || found.front().row->text != text)
        ADD_FAILURE() << "ixfsctl explain takes " << testing::PrintToString(printed) << " for "
                      << (found.empty() ? "no line of ours" : found.front().row->text);
}
#else
void expect_explained(int, const std::string&, const std::string&) {}
#endif

void expect_row(int severity, const char* tag, const char* message)
{
    const InventedLines* const own = invented;
    const LogCatalogue& catalogue = LogCatalogue::of_the_project();
    if (own != nullptr && own->tag == tag)
        return;
    if (catalogue.has(severity, tag, message))
        return expect_explained(severity, tag, message);
    ADD_FAILURE() << "docs/log-lines.md has no row for "
                  << testing::PrintToString(Line{severity, tag, message})
                  << "\nrows with such a text:\n"
                  << catalogue.rows_with_text_of(message);
}

void expect_job_log_row(const char* message)
{
    if (invented == nullptr && !LogCatalogue::of_the_project().has_in_job_log(message))
        ADD_FAILURE() << "docs/log-lines.md marks no row as job log for "
                      << testing::PrintToString(message) << "\nrows with such a text:\n"
                      << LogCatalogue::of_the_project().rows_with_text_of(message);
}

} // namespace

bool operator==(const Line& left, const Line& right)
{
    return left.severity == right.severity && left.tag == right.tag &&
           left.message == right.message;
}

void PrintTo(const Line& line, std::ostream* stream)
{
    *stream << '{' << severity_name(line.severity) << ", " << testing::PrintToString(line.tag)
            << ", " << testing::PrintToString(line.message) << '}';
}

void PrintTo(const Lines& lines, std::ostream* stream)
{
    *stream << lines.size() << " lines\\n"; // GoogleTest splits what it compares at these two
    for (const Line& line : lines) {
        PrintTo(line, stream);
        *stream << "\\n";
    }
}

LogRecorder::LogRecorder()
{
    LogCatalogue::of_the_project(); // is read now, not in the middle of a call to the library
    EXPECT_EQ(current.exchange(this), nullptr) << "two log recorders at a time";
}

LogRecorder::~LogRecorder()
{
    current = nullptr;
}

void LogRecorder::callback(int severity, const char* tag, const char* message)
{
    const interpose::RealCalls of_the_test;
    LogRecorder* const recorder = current;
    if (recorder == nullptr) {
        ADD_FAILURE() << "a line without a recorder: " << tag << ' ' << message;
        return;
    }
    // First, since a test may fork as soon as the line is there: what another thread has in its hands
    // would look like a leak in the child.
    expect_row(severity, tag, message);
    recorder->record({severity, tag, message});
}

void LogRecorder::record(Line line)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.push_back({std::move(line), std::this_thread::get_id()});
    recorded_.notify_all();
}

template <typename Predicate>
Lines LogRecorder::select(Predicate wanted) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    Lines selected;
    for (const Entry& entry : entries_) {
        if (wanted(entry))
            selected.push_back(entry.line);
    }
    return selected;
}

Lines LogRecorder::lines() const
{
    return select([](const Entry&) { return true; });
}

Lines LogRecorder::lines_here() const
{
    return select([](const Entry& e) { return e.thread == std::this_thread::get_id(); });
}

Lines LogRecorder::lines_elsewhere() const
{
    return select([](const Entry& e) { return e.thread != std::this_thread::get_id(); });
}

Lines LogRecorder::with_message(const std::string& message) const
{
    return select([&](const Entry& e) { return e.line.message == message; });
}

Lines LogRecorder::with_tag(const std::string& tag) const
{
    return select([&](const Entry& e) { return e.line.tag == tag; });
}

Lines LogRecorder::take()
{
    std::vector<Entry> entries;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        entries.swap(entries_);
    }
    Lines lines;
    for (Entry& entry : entries)
        lines.push_back(std::move(entry.line));
    return lines;
}

bool LogRecorder::wait_for(const std::string& message, std::size_t count) const
{
    const auto there = [&] {
        std::size_t found = 0;
        for (const Entry& entry : entries_)
            found += entry.line.message == message;
        return found >= count;
    };
    const interpose::RealCalls of_the_test;
    std::unique_lock<std::mutex> lock(mutex_);
    return recorded_.wait_for(lock, std::chrono::seconds(30), there);
}

InventedLines::InventedLines(std::string tag_) : tag(std::move(tag_))
{
    EXPECT_EQ(invented.exchange(this), nullptr) << "two inventions at a time";
}

InventedLines::~InventedLines()
{
    invented = nullptr;
}

void JobLogRecorder::callback(void* job_log_context, int first, int second, int third, int fourth,
                              int fifth, const char* format, ...)
{
    const interpose::RealCalls of_the_test;
    for (const int number : {first, second, third, fourth, fifth})
        EXPECT_EQ(number, 0);
    EXPECT_STREQ(format, "JBD - %s");

    char text[4096]{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    expect_job_log_row(text + std::strlen("JBD - "));

    auto* const recorder = static_cast<JobLogRecorder*>(job_log_context);
    const std::lock_guard<std::mutex> lock(recorder->mutex_);
    recorder->lines_.push_back(text);
}

std::vector<std::string> JobLogRecorder::lines() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}
