// Splitting a backup id. The input is the id.
#include "check.h"
#include "fuzz_target.h"
#include "log_lines.h"

#include "reference/backup_id.h"
#include "reference/text.h"

#include "ixfs_vmir.h"

namespace
{

// The error that the log must tell of, or none.
std::vector<std::string> expected_errors(const reference::BackupId& expected, const std::string& id)
{
    if (expected.time)
        return {};
    const char* cause = "Failed to read backup time from backup id: ";
    if (!expected.client)
        cause = "Backup ID improperly formatted (no underscore): ";
    else if (expected.client->empty())
        cause = "No client name in backup id: ";
    return {logged("ERR - " + (cause + reference::up_to_nul(id)) + "\n").substr(6)};
}

void check(const std::string& id)
{
    LogLines log;
    const Handle handle = make_handle(log);
    const reference::BackupId expected = reference::parse_backup_id(id);

    std::string client = "as before";
    long time = 4711;
    const ec_status status = makeClientAndBackupTime(handle.get(), id, client, time);

    require_equal(status, expected.time ? EC_OK : EC_INVALID_PARAMETER, "status");
    require_equal(client, expected.client.value_or("as before"), "client");
    if (expected.time)
        require_equal(time, *expected.time, "time");
    require_equal(log.behind("ERR - "), expected_errors(expected, id), "errors");
    require_equal(log.behind("INF - ").size(), 1U, "number of other lines");
    require_equal(ixfs_last_error(handle.get()), EC_OK, "last status");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    check(bytes_of(data, size));
    return 0;
}
