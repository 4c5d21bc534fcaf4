#include "ixfs_vmir.h"
#include "log.h"

#include <locale>
#include <sstream>

namespace
{

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
    const Log log(handle, "makeClientAndBackupTime");
    log.info("INF - Finding client and backup time from bid: %s\n", backupId.c_str());
    const std::size_t underscore = backupId.rfind('_');
    if (underscore == std::string::npos) {
        log.error("ERR - Backup ID improperly formatted (no underscore): %s\n", backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    client = backupId.substr(0, underscore);
    if (client.empty()) {
        log.error("ERR - No client name in backup id: %s\n", backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    if (!read_time(backupId.substr(underscore + 1), backupTime)) {
        log.error("ERR - Failed to read backup time from backup id: %s\n", backupId.c_str());
        return EC_INVALID_PARAMETER;
    }
    return EC_OK;
}
