#include "configuration.h"

#include "log.h"

#include <ace/OS_NS_sys_stat.h>

#include <algorithm>
#include <ctime>
#include <fstream>

namespace
{

bool wait_for_file(_ixfs_control_t* handle, const Log& log, const LmfPathname& path)
{
    constexpr int most_checks = 3;
    constexpr timespec pause = {10, 0};
    int failed_checks = 0;
    while (_ixfs_file_exists(handle, path.text().c_str()) == 0) {
        if (++failed_checks == most_checks) {
            log.error("ERR - VM Config file does not exist: %s\n", path.display_str());
            return false;
        }
        log.info("INF - waiting for VM Config file to be accessible\n");
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

void log_reported_size(const Log& log, const LmfPathname& path)
{
    ACE_stat status{};
    ACE_OS::stat(path.text().c_str(), &status);
    log.info("INF - Size reported by stat: %ld bytes\n", static_cast<long>(status.st_size));
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

// The stored file can carry zero padding behind its text.
void cut_padding(const Log& log, std::string& content)
{
    log.info("INF - Read file size: %ld\n", static_cast<long>(content.size()));
    content.resize(std::min(content.find('\0'), content.size()));
    log.info("INF - Size after striping padding: %ld\n", static_cast<long>(content.size()));
}

} // namespace

ec_status readXml(_ixfs_control_t* handle, const LmfPathname& path, std::string& content)
{
    const Log log(handle, "readXml");
    if (!wait_for_file(handle, log, path))
        return EC_FILE_NOT_FOUND;
    prime(path);
    std::ifstream file(path.text(), std::ios::in);
    if (!file) {
        log.error("ERR - Failed to open file for reading: %s\n", path.display_str());
        return EC_FILE_NOT_OPENED;
    }
    log_reported_size(log, path);
    const long size = size_of(file);
    if (size <= 0) {
        log.error("ERR - Failed to stat file: %s and determine size\n", path.display_str());
        return EC_FILE_NOT_READ;
    }
    content.reserve(static_cast<std::size_t>(size));
    log.info("INF - Found xml file of size: %ld bytes, %s\n", size, path.display_str());
    read_all(file, content);
    if (!file) {
        log.error("ERR - Failed to read contents of file: %s\n", path.display_str());
        return EC_FILE_NOT_READ;
    }
    file.close();
    cut_padding(log, content);
    return EC_OK;
}
