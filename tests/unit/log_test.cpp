#include "handle_test.h"
#include "interpose.h"
#include "record_view.h"

#include <cerrno>
#include <clocale>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>

namespace
{

class Log : public HandleTest
{
protected:
    const InventedLines invented{"operation()"};
};

// A log callback that allocates nothing, and leaves errno changed.
int plain_calls = 0;

void plain_callback(int, const char*, const char*)
{
    ++plain_calls;
    errno = EDOM;
}

int plain_job_calls = 0;

void plain_job_callback(void*, int, int, int, int, int, const char*, ...)
{
    ++plain_job_calls;
    errno = EDOM;
}

TEST_F(Log, LineReachesTheCallbackWithSeverityTagAndExpandedFormat)
{
    _ixfs_log(handle.get(), "operation()", IXFS_LOG_WRN, "WRN - %s took %d tries\n", "access", 3);
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_WRN, "operation()", "WRN - access took 3 tries\n"}}));
}

TEST_F(Log, SeverityIsPassedOnWhateverThePrefixSays)
{
    _ixfs_log(handle.get(), "ixfs_unmount()", IXFS_LOG_ERR, "INF - Event terminated...\n");
    EXPECT_EQ(log.lines(),
              (Lines{{IXFS_LOG_ERR, "ixfs_unmount()", "INF - Event terminated...\n"}}));
}

TEST_F(Log, OrdinaryLineDoesNotReachTheJobLog)
{
    _ixfs_log(handle.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(job_log.lines(), std::vector<std::string>{});
}

TEST_F(Log, ServerLineReachesBothLogs)
{
    _ixfs_server_log(handle.get(), "operation()", IXFS_LOG_INF, "INF - response - %s\n", "OK");
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", "INF - response - OK\n"}}));
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - INF - response - OK\n"}));
}

TEST_F(Log, MessageThatHoldsAPercentSignIsNotExpandedTwice)
{
    _ixfs_server_log(handle.get(), "operation()", IXFS_LOG_INF, "INF - %s\n", "100%s");
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - INF - 100%s\n"}));
}

TEST_F(Log, MessageLongerThan2047IsCutTo2047)
{
    const std::string text(5000, 'x');
    _ixfs_log(handle.get(), "operation()", IXFS_LOG_INF, "%s", text.c_str());
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", text.substr(0, 2047)}}));
}

TEST_F(Log, ServerMessageLongerThan2047IsCutTo2047InBothLogs)
{
    const std::string text(2048, 'x');
    _ixfs_server_log(handle.get(), "operation()", IXFS_LOG_INF, "%s", text.c_str());
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", text.substr(0, 2047)}}));
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - " + text.substr(0, 2047)}));
}

TEST_F(Log, MessageOf2047IsWhole)
{
    const std::string text(2047, 'x');
    _ixfs_log(handle.get(), "operation()", IXFS_LOG_INF, "%s", text.c_str());
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", text}}));
}

TEST_F(Log, ServerLineReachesTheJobLogWithoutALogCallback)
{
    const Handle made(ixfs_init(0, nullptr, nullptr, JobLogRecorder::callback, &job_log));
    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(job_log.lines(), (std::vector<std::string>{"JBD - INF - line\n"}));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Log, JobLogIsNotCalledWithoutAContext)
{
    plain_job_calls = 0;
    const Handle made(ixfs_init(0, nullptr, LogRecorder::callback, plain_job_callback, nullptr));
    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(plain_job_calls, 0);
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", "INF - line\n"}}));
}

TEST_F(Log, ContextWithoutAJobLogCallbackIsIgnored)
{
    const Handle made(ixfs_init(0, nullptr, LogRecorder::callback, nullptr, &job_log));
    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", "INF - line\n"}}));
}

TEST_F(Log, NoCallbackAtAllIsAccepted)
{
    const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
    _ixfs_log(silent.get(), "operation()", IXFS_LOG_ERR, "ERR - %d\n", 1);
    _ixfs_server_log(silent.get(), "operation()", IXFS_LOG_ERR, "ERR - %d\n", 1);
    EXPECT_EQ(log.lines(), Lines{});
}

// A text that tells whether it was read: the kernel gives it memory only then.
class UnreadText
{
public:
    UnreadText()
        : text_(mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        EXPECT_NE(text_, MAP_FAILED);
    }
    ~UnreadText() { munmap(text_, 1); }
    UnreadText(const UnreadText&) = delete;
    UnreadText& operator=(const UnreadText&) = delete;

    operator const char*() const { return static_cast<const char*>(text_); }

    bool was_read() const
    {
        unsigned char in_memory = 0;
        EXPECT_EQ(mincore(text_, 1, &in_memory), 0);
        return (in_memory & 1) != 0;
    }

private:
    void* text_;
};

TEST_F(Log, LineIsFormattedAlsoWhenThereIsNoCallback)
{
    const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
    for (const auto function : {_ixfs_log, _ixfs_server_log}) {
        const UnreadText text;
        ASSERT_FALSE(text.was_read());
        function(silent.get(), "operation()", IXFS_LOG_INF, "INF - %s\n",
                 static_cast<const char*>(text));
        EXPECT_TRUE(text.was_read());
    }
}

TEST_F(Log, HandleIsNotValidated)
{
    record_view::mark_of(handle.get())[0] = 'x';
    _ixfs_log(handle.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    record_view::mark_of(handle.get())[0] = 'I';
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_INF, "operation()", "INF - line\n"}}));
}

TEST_F(Log, ErrnoStaysWhateverTheCallbacksDo)
{
    const Handle made(ixfs_init(0, nullptr, plain_callback, plain_job_callback, &job_log));
    errno = EXDEV;
    _ixfs_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(errno, EXDEV);
    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(Log, LineCostsNoAllocation)
{
    plain_calls = 0;
    const Handle made(ixfs_init(0, nullptr, plain_callback, plain_job_callback, &job_log));
    const std::string text(5000, 'x');
    auto allocations = interpose::on_allocation.watch();
    _ixfs_log(made.get(), "operation()", IXFS_LOG_INF, "INF - %s %d\n", text.c_str(), 1);
    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - %s %d\n", text.c_str(), 1);
    EXPECT_EQ(allocations.calls(), 0);
    EXPECT_EQ(plain_calls, 2);
}

TEST_F(Log, LinesOfSeveralThreadsAllArriveWhole)
{
    constexpr int threads = 4;
    constexpr int lines_each = 100;
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
        running.emplace_back([this] {
            for (int j = 0; j < lines_each; ++j)
                _ixfs_server_log(handle.get(), "operation()", IXFS_LOG_INF, "INF - %s\n", "line");
        });
    for (std::thread& thread : running)
        thread.join();
    EXPECT_EQ(log.with_message("INF - line\n").size(), std::size_t{threads * lines_each});
    EXPECT_EQ(job_log.lines(),
              std::vector<std::string>(threads * lines_each, "JBD - INF - line\n"));
}

TEST_F(Log, InitialisationTakesTheTimeCategorysLocale)
{
    auto setlocale_hook =
        interpose::on_setlocale([](int category, const char* locale) -> std::optional<char*> {
            static char time[] = "the time category's";
            static char other[] = "another category's";
            EXPECT_EQ(locale, nullptr) << "the process's locale is only asked for";
            return category == LC_TIME ? time : other;
        });
    _ixfs_log_init();
    EXPECT_STREQ(g_lc_time, "the time category's");
}

TEST_F(Log, InitialisationFollowsTheProcesssLocale)
{
    ASSERT_STREQ(std::setlocale(LC_TIME, "C.UTF-8"), "C.UTF-8");
    _ixfs_log_init();
    EXPECT_STREQ(g_lc_time, "C.UTF-8");
    std::setlocale(LC_TIME, "C");
    _ixfs_log_init();
    EXPECT_STREQ(g_lc_time, "C");
}

TEST_F(Log, LocaleQueryFailureLeavesC)
{
    for (int failing = 1; failing <= 5; ++failing) {
        SCOPED_TRACE(failing);
        std::strcpy(g_lc_time, "stale");
        auto setlocale_hook = interpose::on_setlocale.fails_once(EINVAL, failing);
        _ixfs_log_init();
        EXPECT_STREQ(g_lc_time, "C");
    }
}

TEST_F(Log, LongLocaleNameIsCut)
{
    std::string name(300, 'l');
    auto setlocale_hook = interpose::on_setlocale.returns(name.data());
    _ixfs_log_init();
    EXPECT_EQ(g_lc_time, name.substr(0, 255));
    g_lc_time[0] = '\0';
}

} // namespace
