#include "ixfs_vmir.h"

#include <locale>
#include <sstream>

namespace
{

constexpr char tag[] = "makeClientAndBackupTime";

// Reads the number at the front of `text`; what follows it is of no interest.
bool read_time(const std::string& text, long& time)
{
    std::istringstream stream(text);
    stream.imbue(std::locale::classic()); // the process's locale may group digits
    return static_cast<bool>(stream >> time);
}

} // namespace

ec_status makeClientAndBackupTime(_ixfs_control_t* handle, const std::string& backupId,
                                  std::string& client, long& backupTime)
{
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Finding client and backup time from bid: %s\n",
              backupId.c_str());
    const std::size_t underscore = backupId.rfind('_');
    if (underscore == std::string::npos) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - Backup ID improperly formatted (no underscore): %s\n", backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    client = backupId.substr(0, underscore);
    if (client.empty()) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - No client name in backup id: %s\n",
                  backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    if (!read_time(backupId.substr(underscore + 1), backupTime)) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - Failed to read backup time from backup id: %s\n", backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    return EC_OK;
}
