#include "values.h"

#include "silent_handle.h"

#include <ixfs_vmir.h>

int schedule_number(const std::string& name)
{
    if (name == "full")
        return 0;
    return name == "incr" ? 1 : -1;
}

std::string schedule_name(int number)
{
    return number == 0 ? "full" : "incr";
}

std::string check_backup_id(const std::string& value)
{
    if (value.empty())
        return "must not be empty";
    if (value.find('/') != std::string::npos || value.find('\0') != std::string::npos)
        return "must not hold a \"/\" or a NUL, since its client becomes a directory name";
    std::string client;
    long time = 0;
    if (makeClientAndBackupTime(SilentHandle().get(), value, client, time) != EC_OK)
        return "must be \"<client>_<time>\", with a decimal number as the time";
    if (client == "." || client == "..")
        return "must not have \".\" or \"..\" as its client, which becomes a directory name";
    return "";
}
