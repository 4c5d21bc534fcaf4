#include "bounded_text.h"
#include "log.h"
#include "this_process.h"

#include <array>
#include <clocale>
#include <mutex>

char g_lc_time[256];

namespace
{

using LocaleName = char[sizeof(g_lc_time)];

// Copies the names of five categories' locales, the time category's third. Returns false when
// setlocale returns null; the buffers may then be half filled.
bool query_locale(std::array<char*, 5> names)
{
    constexpr int categories[] = {LC_CTYPE, LC_NUMERIC, LC_TIME, LC_COLLATE, LC_MONETARY};
    for (std::size_t i = 0; i < names.size(); ++i) {
        const char* const name = std::setlocale(categories[i], nullptr);
        if (name == nullptr)
            return false;
        strlcpy(names[i], name, sizeof(LocaleName));
    }
    return true;
}

} // namespace

void _ixfs_log_init(void)
{
    // Handles may be made on several threads at once, and in a child.
    const std::lock_guard<std::recursive_mutex> one_at_a_time(fork_mutex());
    LocaleName unused[4];
    if (!query_locale({unused[0], unused[1], g_lc_time, unused[2], unused[3]}))
        strlcpy(g_lc_time, "C", sizeof(g_lc_time));
}
