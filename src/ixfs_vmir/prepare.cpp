#include "control.h"
#include "copy_or_link.h"
#include "image_layout.h"
#include "mount_record.h"

#include <ace/OS_NS_sys_stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace
{

// ---- The VM configuration -----------------------------------------------------------------------

constexpr char read_tag[] = "readXml";

// A fresh mount may not show the file at once.
bool wait_for_file(_ixfs_control_t* handle, const LmfPathname& path)
{
    constexpr int most_checks = 3;
    constexpr timespec pause = {10, 0};
    int failed_checks = 0;
    while (_ixfs_file_exists(handle, path.text().c_str()) == 0) {
        if (++failed_checks == most_checks) {
            _ixfs_log(handle, read_tag, IXFS_LOG_ERR, "ERR - VM Config file does not exist: %s\n",
                      path.display_str());
            return false;
        }
        _ixfs_log(handle, read_tag, IXFS_LOG_INF,
                  "INF - waiting for VM Config file to be accessible\n");
        nanosleep(&pause, nullptr);
    }
    return true;
}

// A first short read makes the mounted file system fetch the file. Nothing of it is used.
void prime(const LmfPathname& path)
{
    char scratch[100];
    std::ifstream file(path.text(), std::ios::in);
    file.read(scratch, sizeof(scratch));
}

void log_reported_size(_ixfs_control_t* handle, const LmfPathname& path)
{
    ACE_stat status{};
    ACE_OS::stat(path.text().c_str(), &status);
    _ixfs_log(handle, read_tag, IXFS_LOG_INF, "INF - Size reported by stat: %ld bytes\n",
              static_cast<long>(status.st_size));
}

// Returns the file's size in bytes, -1 where the stream can't tell, and leaves the stream at the
// start.
long size_of(std::ifstream& file)
{
    file.seekg(0, std::ios::end);
    const auto size = static_cast<long>(file.tellg());
    file.seekg(0, std::ios::beg);
    return size;
}

// Replaces `content` by all that the stream yields. A read error leaves what came before it and
// puts the stream into its bad state.
void read_all(std::ifstream& file, std::string& content)
{
    using Traits = std::ifstream::traits_type;
    std::filebuf& buffer = *file.rdbuf();
    content.clear();
    try {
        for (auto c = buffer.sbumpc(); c != Traits::eof(); c = buffer.sbumpc())
            content.push_back(Traits::to_char_type(c));
    } catch (const std::ios_base::failure&) { // how a file buffer tells of a failed read
        file.setstate(std::ios::badbit);
    }
}

// The stored file can carry zero padding.
void cut_padding(_ixfs_control_t* handle, std::string& content)
{
    _ixfs_log(handle, read_tag, IXFS_LOG_INF, "INF - Read file size: %ld\n",
              static_cast<long>(content.size()));
    content.resize(std::min(content.find('\0'), content.size()));
    _ixfs_log(handle, read_tag, IXFS_LOG_INF, "INF - Size after striping padding: %ld\n",
              static_cast<long>(content.size()));
}

ec_status readXml(_ixfs_control_t* handle, const LmfPathname& path, std::string& content)
{
    if (!wait_for_file(handle, path))
        return EC_FILE_NOT_FOUND;
    prime(path);
    std::ifstream file(path.text(), std::ios::in);
    if (!file) {
        _ixfs_log(handle, read_tag, IXFS_LOG_ERR, "ERR - Failed to open file for reading: %s\n",
                  path.display_str());
        return EC_FILE_NOT_OPENED;
    }
    log_reported_size(handle, path);
    const long size = size_of(file);
    if (size <= 0) {
        _ixfs_log(handle, read_tag, IXFS_LOG_ERR,
                  "ERR - Failed to stat file: %s and determine size\n", path.display_str());
        return EC_FILE_NOT_READ;
    }
    content.reserve(static_cast<std::size_t>(size));
    _ixfs_log(handle, read_tag, IXFS_LOG_INF, "INF - Found xml file of size: %ld bytes, %s\n", size,
              path.display_str());
    read_all(file, content);
    if (!file) {
        _ixfs_log(handle, read_tag, IXFS_LOG_ERR, "ERR - Failed to read contents of file: %s\n",
                  path.display_str());
        return EC_FILE_NOT_READ;
    }
    file.close();
    cut_padding(handle, content);
    return EC_OK;
}

// ---- The view -----------------------------------------------------------------------------------

constexpr char view_tag[] = "create_view_vmir";

LmfString mount_point_of(const _ixfs_control_t* handle)
{
    return default_narrow(handle->mount->mount_point);
}

std::string normal_form(const LmfString& path)
{
    return std::filesystem::path(path.utf8_str()).lexically_normal().native();
}

bool lies_below(const LmfString& path, const LmfString& folder)
{
    const std::string prefix = normal_form(folder) + '/';
    return normal_form(path).compare(0, prefix.size(), prefix) == 0;
}

// Refuses what would write over one of the VM's own files: a disk that lies in the view folder, and
// a disk whose descriptor would get the name of another's data link ("a-flat" beside "a").
void checkDisks(_ixfs_control_t* handle, const LmfString& viewPath,
                const std::vector<VmirPath>& records)
{
    constexpr char step[] = "checkDisks";
    std::set<LmfString> descriptors;
    for (const VmirPath& disk : records)
        descriptors.insert(disk.viewDescPath);
    for (const VmirPath& disk : records) {
        const char* const path = disk.datastoreDescPath.utf8_str();
        if (lies_below(disk.originalDescPath, viewPath)) {
            _ixfs_log(handle, view_tag, IXFS_LOG_ERR, "ERR - Disk lies in the view folder: %s\n",
                      path);
            throw EcStatusException(EC_INVALID_PARAMETER, step);
        }
        if (descriptors.count(disk.viewVmdkPath) != 0) {
            _ixfs_log(handle, view_tag, IXFS_LOG_ERR,
                      "ERR - Another disk's descriptor has the name of the data file of: %s\n",
                      path);
            throw EcStatusException(EC_INVALID_PARAMETER, step);
        }
    }
}

// The view and its lock stay in the handle until that ends, also after a failure.
void createGlobalLockForView(_ixfs_control_t* handle, long backupTime)
{
    constexpr char step[] = "createGlobalLockForView";
    _ixfs_view_t* const view = _ixfs_view_create(handle);
    if (view == nullptr) {
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Failed to create view\n");
        throw EcStatusException(EC_VIEW_NOT_CREATED, step);
    }
    char base_name[text_size]; // the folder has a name of its own
    if (_ixfs_view_lock(handle, view, backupTime, base_name, sizeof(base_name)) == 0) {
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Failed to get lock\n");
        throw EcStatusException(EC_VIEW_NOT_LOCKED, step);
    }
}

void makeViewFolder(_ixfs_control_t* handle, const LmfPathname& viewFolder,
                    const std::string& client, long backupTime, int scheduleType)
{
    constexpr char step[] = "makeViewFolder";
    if (_ixfs_file_exists(handle, viewFolder.text().c_str()) != 0) {
        _ixfs_log(handle, step, IXFS_LOG_INF, "INF - Using existing folder for view: %s\n",
                  viewFolder.display_str());
        return;
    }
    LmfPathname imagePath;
    try {
        buildImagePath(handle, client, backupTime, scheduleType, imagePath);
    } catch (const EcStatusException& failure) { // GCOVR_EXCL_START
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Failed to build image path: %s\n",
                  failure.what());
        throw;
    } // GCOVR_EXCL_STOP
    const LmfPathname imageFolder = convertUnixPathToPlatformPath(
        mount_point_of(handle), default_narrow(imagePath.text().c_str()));
    uint32_t created = 0;
    const int result = _ixfs_folder_create(handle, imageFolder.text().c_str(),
                                           VIEW_DIR_NAME.text().c_str(), &created, 0755);
    if (result != 0) {
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Could not create folder for view: %s\n",
                  viewFolder.display_str());
        throw EcStatusException(static_cast<ec_status>(result), step);
    }
}

LmfString file_name_of(const LmfString& path)
{
    LmfPathname pathname;
    pathname.makeFilename(path.text().c_str(), false);
    return default_narrow(pathname.last_segment());
}

void copyAndLinkOneVmirPath(_ixfs_control_t* handle, const VmirPath& disk)
{
    constexpr char step[] = "copyAndLinkOneVmirPath";
    const LmfString vmdkName = file_name_of(disk.viewVmdkPath);
    ec_status status =
        copyOrLinkPath(handle, disk.originalDescPath, disk.viewDescPath, false, true, vmdkName);
    if (status != EC_OK) {
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Failed to copy src .desc: %s to %s\n",
                  disk.originalDescPath.utf8_str(), disk.viewDescPath.utf8_str());
        _ixfs_log(handle, step, IXFS_LOG_ERR, "      with new .vmdk name: %s\n",
                  vmdkName.utf8_str());
        throw EcStatusException(status, step);
    }
    status =
        copyOrLinkPath(handle, disk.originalVmdkPath, disk.viewVmdkPath, true, false, LmfString());
    if (status != EC_OK) {
        _ixfs_log(handle, step, IXFS_LOG_ERR, "ERR - Failed to link src .vmdk: %s to %s\n",
                  disk.originalVmdkPath.utf8_str(), disk.viewVmdkPath.utf8_str());
        throw EcStatusException(status, step);
    }
}

// Builds the whole view of a VM in the mounted image. What fails before the first disk leaves all
// there is in place; what fails at a disk removes the view folder.
ec_status create_view_vmir(_ixfs_control_t* handle, std::vector<std::string>& entries,
                           const std::string& client, long backupTime, int scheduleType,
                           std::vector<std::string>& out)
{
    LmfString viewPath;
    try {
        buildViewPath(handle, client, backupTime, scheduleType, viewPath);
    } catch (const EcStatusException& failure) { // GCOVR_EXCL_START
        _ixfs_log(handle, view_tag, IXFS_LOG_ERR, "ERR - Failed to build view path: %s\n",
                  failure.what());
        return failure.status;
    } // GCOVR_EXCL_STOP
    const LmfPathname viewFolder = convertUnixPathToPlatformPath(mount_point_of(handle), viewPath);

    std::vector<VmirPath> records;
    try {
        populateVmirPathVector(handle, entries, viewPath, records);
        checkDisks(handle, viewPath, records);
        createGlobalLockForView(handle, backupTime);
        makeViewFolder(handle, viewFolder, client, backupTime, scheduleType);
    } catch (const EcStatusException& failure) {
        _ixfs_log(handle, view_tag, IXFS_LOG_ERR,
                  "ERR - Create view for VM Instant Recovery has failed: %d.\n", failure.status);
        return failure.status;
    }

    try {
        for (const VmirPath& disk : records)
            copyAndLinkOneVmirPath(handle, disk);
        convertVmdkPathsListToCharArrays(records, out);
    } catch (const EcStatusException& failure) {
        _ixfs_log(handle, view_tag, IXFS_LOG_ERR, "ERR - An internal error has occurred: %s\n",
                  failure.what());
        _ixfs_folder_delete(handle, viewFolder.text().c_str());
        return failure.status;
    }
    return EC_OK;
}

// ---- The call -----------------------------------------------------------------------------------

// One handle with at most one mount, both ended on every path, an exception's included.
class Session
{
public:
    explicit Session(const LogInfo* log_info) : handle_(make_handle(log_info)) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ~Session()
    {
        if (mounted_)
            ixfs_unmount(handle_);
        if (handle_ != nullptr)
            ixfs_term(handle_);
    }

    _ixfs_control_t* handle() const { return handle_; }

    ec_status mount(const MountCreds& creds)
    {
        mounted_ = ixfs_mount(handle_, creds.mount_cred, creds.unmount_cred, creds.port,
                              creds.server, creds.timeout, creds.reserved) != nullptr;
        return mounted_ ? EC_OK : ixfs_last_error(handle_);
    }

private:
    static _ixfs_control_t* make_handle(const LogInfo* log_info)
    {
        const bool logs = log_info != nullptr && log_info->log_callback != nullptr;
        return ixfs_init(IXFS_FLAG_UNMOUNT_CRED, logs ? log_info->log_context : nullptr,
                         logs ? log_info->log_callback : nullptr, nullptr, nullptr);
    }

    _ixfs_control_t* handle_;
    bool mounted_ = false;
};

ec_status prepare_mounted(_ixfs_control_t* handle, const MountCreds& creds,
                          std::vector<std::string>& entries, std::string& vmConfig,
                          std::vector<std::string>& out)
{
    std::string client;
    long backupTime = 0;
    ec_status status = makeClientAndBackupTime(handle, creds.backup_id, client, backupTime);
    if (status != EC_OK)
        return status;
    LmfPathname xmlPath;
    status = buildPathToXml(handle, client, backupTime, creds.schedule_type, xmlPath);
    if (status != EC_OK)
        return status;
    status = readXml(handle, xmlPath, vmConfig);
    if (status != EC_OK)
        return status;
    return create_view_vmir(handle, entries, client, backupTime, creds.schedule_type, out);
}

} // namespace

ec_status ixfs_prepare_vmir(const MountCreds& creds, std::vector<std::string>& entries,
                            LogInfo* logInfo, std::string& vmConfig, std::vector<std::string>& out,
                            bool newDiskUuids)
{
    Session session(logInfo);
    if (session.handle() == nullptr)
        return EC_NO_HANDLE;
    const ec_status status = session.mount(creds);
    if (status != EC_OK)
        return status;
    if (newDiskUuids)
        session.handle()->flags |= IXFS_FLAG_NEW_DISK_UUID;
    return prepare_mounted(session.handle(), creds, entries, vmConfig, out);
}
