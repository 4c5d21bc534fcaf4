// What the library said: recorders behind the two callbacks, and lines that compare and print well.
//
//     EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_INF, "ixfs_mount()", "INF - waiting ...\n"}}));
#ifndef IXFS_TESTS_LOG_RECORDER_H
#define IXFS_TESTS_LOG_RECORDER_H

#include "ixfs.h"

#include <condition_variable>
#include <iosfwd>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct Line {
    int severity;
    std::string tag;
    std::string message;
};

bool operator==(const Line& left, const Line& right);
void PrintTo(const Line& line, std::ostream* stream);

// A vector that GoogleTest prints whole and compares line by line.
struct Lines : std::vector<Line> {
    using std::vector<Line>::vector;
};

void PrintTo(const Lines& lines, std::ostream* stream);

// Records the lines of every handle whose log callback is LogRecorder::callback. There is one
// recorder at a time, since that callback has no context; it must outlive those handles. A line
// that comes while there is none fails the test that runs, and so does one without a row in
// docs/log-lines.md: the same tag, severity and text. Any thread.
class LogRecorder
{
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    static void callback(int severity, const char* tag, const char* message);

    // All lines; those that the calling thread logged; those that other threads logged.
    Lines lines() const;
    Lines lines_here() const;
    Lines lines_elsewhere() const;

    // The lines whose message or tag is the given one.
    Lines with_message(const std::string& message) const;
    Lines with_tag(const std::string& tag) const;

    // Returns all lines and forgets them.
    Lines take();

    // Waits until `count` lines with that message are there. Returns whether they came within 30
    // seconds.
    bool wait_for(const std::string& message, std::size_t count = 1) const;

private:
    struct Entry {
        Line line;
        std::thread::id thread;
    };

    template <typename Predicate>
    Lines select(Predicate wanted) const;
    void record(Line line);

    mutable std::mutex mutex_;
    mutable std::condition_variable recorded_;
    std::vector<Entry> entries_;
};

// While it lives, lines with a tag are the test's own invention and need no row in
// docs/log-lines.md; nor does any line of the job log, which has no tags. One at a time.
class InventedLines
{
public:
    explicit InventedLines(std::string tag);
    ~InventedLines();
    InventedLines(const InventedLines&) = delete;
    InventedLines& operator=(const InventedLines&) = delete;

    const std::string tag;
};

// Records the job log of the handles that are given `callback` and `&recorder`. Checks that the
// integers are zero and the format is "JBD - %s", as every line has them, and that
// docs/log-lines.md marks a row with such a text as "job log". Any thread.
class JobLogRecorder
{
public:
    static void callback(void* job_log_context, int, int, int, int, int, const char* format, ...)
        IXFS_PRINTF(7, 8);

    // The lines as the format expands them.
    std::vector<std::string> lines() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

#endif
