// The examples that give each handle a log of its own: every slot leads to its own context, and can
// be claimed again.
#include "log_per_handle.hpp"
#include "log_per_handle_in_c.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

struct Ender {
    void operator()(_ixfs_control_t* handle) const { ixfs_term(handle); }
};
using HandlePtr = std::unique_ptr<_ixfs_control_t, Ender>;

HandlePtr make_logging_handle(ixfs_log_callback callback)
{
    return HandlePtr(ixfs_init(0, nullptr, callback, nullptr, nullptr));
}

TEST(LogPerHandle, EachHandleLogsToItsOwnObject)
{
    std::vector<std::string> texts(HandleLog::slot_count);
    std::deque<HandleLog> logs;
    std::vector<HandlePtr> handles;
    for (std::string& text : texts) {
        logs.emplace_back([&text](int severity, const char* tag, const char* message) {
            text += std::to_string(severity) + tag + message;
        });
        handles.push_back(make_logging_handle(logs.back().callback()));
    }
    for (std::size_t i = 0; i < handles.size(); ++i)
        _ixfs_log(handles[i].get(), " tag ", IXFS_LOG_WRN, "%zu", i);
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], "1 tag " + std::to_string(i));
}

TEST(LogPerHandle, SlotIsClaimedAgainOnceItsObjectIsGone)
{
    const auto nothing = [](int, const char*, const char*) {
    };
    std::deque<HandleLog> logs;
    while (logs.size() < HandleLog::slot_count)
        logs.emplace_back(nothing);
    EXPECT_THROW(logs.emplace_back(nothing), std::runtime_error);
    const ixfs_log_callback last = logs.back().callback();
    logs.pop_back();
    EXPECT_EQ(logs.emplace_back(nothing).callback(), last);
}

void append(void* text, int severity, const char* tag, const char* message)
{
    *static_cast<std::string*>(text) += std::to_string(severity) + tag + message;
}

TEST(LogPerHandle, EachHandleInCLogsToItsOwnContext)
{
    std::vector<std::string> texts(static_cast<std::size_t>(log_slot_count_in_c()));
    std::vector<ixfs_log_callback> callbacks;
    std::vector<HandlePtr> handles;
    for (std::string& text : texts) {
        callbacks.push_back(claim_log_in_c(append, &text));
        handles.push_back(make_logging_handle(callbacks.back()));
    }
    for (std::size_t i = 0; i < handles.size(); ++i)
        _ixfs_log(handles[i].get(), " tag ", IXFS_LOG_WRN, "%zu", i);
    for (std::size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], "1 tag " + std::to_string(i));
    handles.clear();
    for (const ixfs_log_callback callback : callbacks)
        give_back_log_in_c(callback);
}

TEST(LogPerHandle, SlotInCIsClaimedAgainOnceItIsGivenBack)
{
    std::vector<ixfs_log_callback> callbacks;
    for (int i = 0; i < log_slot_count_in_c(); ++i)
        callbacks.push_back(claim_log_in_c(append, nullptr));
    EXPECT_EQ(claim_log_in_c(append, nullptr), nullptr);
    give_back_log_in_c(nullptr);
    EXPECT_EQ(claim_log_in_c(append, nullptr), nullptr);
    give_back_log_in_c(callbacks[3]);
    EXPECT_EQ(claim_log_in_c(append, nullptr), callbacks[3]);
    for (const ixfs_log_callback callback : callbacks)
        give_back_log_in_c(callback);
}

} // namespace
