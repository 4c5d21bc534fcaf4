/* One log callback for each handle, with a context of its own. The library gives its callback no
 * context; so there is a function for each slot here, and a slot knows its context. Copy this file,
 * and include it in one source file:
 *
 *     const ixfs_log_callback callback = claim_log(write_line, "media1");
 *     _ixfs_control_t* const handle = ixfs_init(flags, NULL, callback, NULL, NULL);
 *     ...
 *     ixfs_term(handle);
 *     give_back_log(callback);
 *
 * Once ixfs_term has returned, no line comes any more, so the slot can serve another handle. */
#ifndef LOG_PER_HANDLE_H
#define LOG_PER_HANDLE_H

#include <ixfs.h>

#include <stdatomic.h>

/* Gets a handle's lines, perhaps on two threads at once. */
typedef void (*log_writer)(void* context, int severity, const char* tag, const char* message);

struct log_slot {
    atomic_bool is_taken;
    log_writer write;
    void* context;
};

/* As many handles can log at a time. */
/* clang-format off */
#define FOR_EACH_LOG_SLOT(DO) \
    DO(0) DO(1) DO(2) DO(3) DO(4) DO(5) DO(6) DO(7) \
    DO(8) DO(9) DO(10) DO(11) DO(12) DO(13) DO(14) DO(15)
/* clang-format on */

#define COUNT_LOG_SLOT(number) +1
#define NAME_LOG_CALLBACK(number) log_to_slot_##number,
#define DEFINE_LOG_CALLBACK(number)                                                                \
    static void log_to_slot_##number(int severity, const char* tag, const char* message)           \
    {                                                                                              \
        log_slots[number].write(log_slots[number].context, severity, tag, message);                \
    }

enum { log_slot_count = FOR_EACH_LOG_SLOT(COUNT_LOG_SLOT) };

static struct log_slot log_slots[log_slot_count];

FOR_EACH_LOG_SLOT(DEFINE_LOG_CALLBACK)

static const ixfs_log_callback log_callbacks[] = {FOR_EACH_LOG_SLOT(NAME_LOG_CALLBACK)};

/* Returns a callback that hands its lines to `write` with `context`; null, which ixfs_init takes for
 * "no lines", when all slots are taken. Any thread. */
static ixfs_log_callback claim_log(log_writer write, void* context)
{
    for (int i = 0; i < log_slot_count; ++i) {
        if (!atomic_exchange(&log_slots[i].is_taken, true)) {
            log_slots[i].write = write;
            log_slots[i].context = context;
            return log_callbacks[i];
        }
    }
    return NULL;
}

/* Null is accepted. Any thread. */
static void give_back_log(ixfs_log_callback callback)
{
    for (int i = 0; i < log_slot_count; ++i) {
        if (log_callbacks[i] == callback)
            atomic_store(&log_slots[i].is_taken, false);
    }
}

#endif
