// What programs have compiled in that use ixfs_vmir.h: records and signatures. A line here that no
// longer compiles means that such programs break.
#include <ixfs_vmir.h>

#include "interface_assertions.h"

#include <set>
#include <string>
#include <vector>

// ---- Records ------------------------------------------------------------------------------------

using Text = const char*;
using AnyPointer = void*;

ASSERT_THAT(std::is_standard_layout<MountCreds>::value);
ASSERT_FIELD(MountCreds, server, Text, 0);
ASSERT_FIELD(MountCreds, port, int, 8);
ASSERT_FIELD(MountCreds, schedule_type, int, 12);
ASSERT_FIELD(MountCreds, timeout, unsigned int, 16);
ASSERT_FIELD(MountCreds, reserved, Text, 24);
ASSERT_FIELD(MountCreds, mount_cred, Text, 32);
ASSERT_FIELD(MountCreds, unmount_cred, Text, 40);
ASSERT_FIELD(MountCreds, backup_id, std::string, 48);
ASSERT_SIZE(MountCreds, 48 + sizeof(std::string));

ASSERT_FIELD(LogInfo, log_context, AnyPointer, 0);
ASSERT_FIELD(LogInfo, log_callback, ixfs_log_callback, 8);
ASSERT_SIZE(LogInfo, 16);

// The order of the fields shows only where a record is; a unit test looks there.
ASSERT_SIZE(VmirPath, 8 * sizeof(LmfString));

// ---- Signatures ---------------------------------------------------------------------------------

using Entries = std::vector<std::string>;
using Records = std::vector<VmirPath>;
using Names = std::set<LmfString>;

ASSERT_FUNCTION(ixfs_prepare_vmir, ec_status,
                (const MountCreds&, Entries&, LogInfo*, std::string&, Entries&, bool));

ASSERT_FUNCTION(buildVmirPathVectorFromCharArray, void, (Entries&, Records&));
ASSERT_FUNCTION(populateVmirPath, void, (_ixfs_control_t*, Names&, LmfString&, VmirPath&));
ASSERT_FUNCTION(populateVmirPathVector, void, (_ixfs_control_t*, Entries&, LmfString&, Records&));
ASSERT_FUNCTION(convertVmdkPathsListToCharArrays, void, (const Records&, Entries&));
ASSERT_FUNCTION(ensureUniquenessOfBasename, bool, (Names&, LmfString&));

ASSERT_FUNCTION(buildDatastore, void, (const LmfString&, LmfString&));
ASSERT_FUNCTION(buildOriginalDescPath, void, (const LmfString&, LmfString&));
ASSERT_FUNCTION(buildOriginalVmdkPath, void, (const LmfString&, LmfString&));
ASSERT_FUNCTION(buildBaseName, void, (const LmfString&, LmfString&));
ASSERT_FUNCTION(buildViewDescPath, void, (const LmfString&, const LmfString&, LmfString&));
ASSERT_FUNCTION(buildViewVmdkPath, void, (const LmfString&, const LmfString&, LmfString&));
ASSERT_FUNCTION(buildDatastoreViewDescPath, void, (const LmfString&, const LmfString&, LmfString&));
ASSERT_FUNCTION(convertUnixPathToPlatformPath, LmfPathname, (const LmfString&, const LmfString&));

ASSERT_FUNCTION(makeClientAndBackupTime, ec_status,
                (_ixfs_control_t*, const std::string&, std::string&, long&));
ASSERT_FUNCTION(buildImagePath, void,
                (_ixfs_control_t*, const std::string&, long, int, LmfPathname&));
ASSERT_FUNCTION(buildPathToXml, ec_status,
                (_ixfs_control_t*, const std::string&, long, int, LmfPathname&));
ASSERT_FUNCTION(buildViewPath, void, (_ixfs_control_t*, const std::string&, long, int, LmfString&));

ASSERT_FUNCTION(getVmdkUuid, std::string, ());

// ---- The exception ------------------------------------------------------------------------------

ASSERT_THAT(HAS_TYPE(&EcStatusException::status, ec_status EcStatusException::*));
ASSERT_THAT(HAS_TYPE(&EcStatusException::message, std::string EcStatusException::*));
