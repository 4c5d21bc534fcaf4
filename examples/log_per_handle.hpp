// One log callback for each handle, with a function object of its own. The library gives its
// callback no context; so there is a function for each slot here, and a slot knows its object. Copy
// this file:
//
//     HandleLog log([](int severity, const char* tag, const char* message) { ... });
//     _ixfs_control_t* const handle = ixfs_init(flags, nullptr, log.callback(), nullptr, nullptr);
//     ...
//     ixfs_term(handle);
//
// Declare the log before what ends the handle: it must live longer. Once ixfs_term has returned, no
// line comes any more, so the slot can serve another handle.
#ifndef LOG_PER_HANDLE_HPP
#define LOG_PER_HANDLE_HPP

#include <ixfs.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <utility>

// Gets a handle's lines, perhaps on two threads at once. Must not throw.
using LogWriter = std::function<void(int severity, const char* tag, const char* message)>;

struct LogSlot {
    std::atomic<bool> is_taken{false};
    LogWriter write;
};

class HandleLog
{
public:
    static constexpr std::size_t slot_count = 16; // as many handles can log at a time

    // Throws std::runtime_error when all slots are taken. Any thread.
    explicit HandleLog(LogWriter writer) : number_(claim())
    {
        slots_[number_].write = std::move(writer);
    }
    ~HandleLog()
    {
        slots_[number_].write = nullptr;
        slots_[number_].is_taken = false;
    }
    HandleLog(const HandleLog&) = delete;
    HandleLog& operator=(const HandleLog&) = delete;

    ixfs_log_callback callback() const
    {
        static const auto callbacks = make_callbacks(std::make_index_sequence<slot_count>());
        return callbacks[number_];
    }

private:
    static std::size_t claim()
    {
        for (std::size_t i = 0; i < slot_count; ++i) {
            if (!slots_[i].is_taken.exchange(true))
                return i;
        }
        throw std::runtime_error("too many handles log at a time");
    }

    template <std::size_t number>
    static void log_to_slot(int severity, const char* tag, const char* message)
    {
        slots_[number].write(severity, tag, message);
    }

    template <std::size_t... numbers>
    static std::array<ixfs_log_callback, slot_count> make_callbacks(std::index_sequence<numbers...>)
    {
        return {log_to_slot<numbers>...};
    }

    static inline std::array<LogSlot, slot_count> slots_;

    std::size_t number_;
};

#endif
