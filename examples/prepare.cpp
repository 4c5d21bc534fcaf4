// Prepares a VM for instant recovery:
//
//     prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS
//
// Standard input holds the credential for the mount and that for the unmount, one a line. A DISK is
// a descriptor in datastore form: "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc".
#include "safe_words.h"

#include <ixfs_vmir.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

namespace
{

// The backup id and the disks become paths, which must not lead out of the image.
bool stays_below(const std::string& path)
{
    return path.rfind("..", 0) != 0 && path.find("/..") == std::string::npos;
}

// Some lines of the highest severity are no problems: their messages begin with "INF -". What shows
// the helper's command line shows a credential.
void print_problem(int severity, const char* tag, const char* message)
{
    if (severity <= IXFS_LOG_WRN && std::strncmp(message, "INF -", 5) != 0)
        std::cerr << tag << ' ' << (std::strstr(message, "-cred") ? "helper not run\n" : message);
}

// The preparation does not tell whether its unmount worked; the mount table does.
bool is_mounted(const std::string& server)
{
    std::ifstream table("/proc/self/mounts");
    std::string line;
    while (std::getline(table, line)) {
        if (line.find(" /usr/varnis/var/ixfs/" + server + ' ') != std::string::npos)
            return true;
    }
    return !table.eof(); // then nobody knows
}

} // namespace

int main(int argc, char* argv[])
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::string mount_cred;
    std::string unmount_cred;
    bool good = arguments.size() >= 4 && is_server_name(argv[1]) &&
                arguments[2].find('/') == std::string::npos && std::getline(std::cin, mount_cred) &&
                std::getline(std::cin, unmount_cred) && is_credential(mount_cred.c_str()) &&
                is_credential(unmount_cred.c_str());
    for (const std::string& argument : arguments)
        good = good && stays_below(argument);
    if (!good) {
        std::cerr << "usage: prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS\n" SAFE_WORDS_ARE;
        return 2;
    }
    MountCreds creds{};
    creds.server = arguments[0].c_str();
    creds.port = std::atoi(arguments[1].c_str());
    creds.schedule_type = 0; // a full backup
    creds.timeout = 30;
    creds.mount_cred = mount_cred.c_str();
    creds.unmount_cred = unmount_cred.c_str();
    creds.backup_id = arguments[2];
    std::vector<std::string> disks(arguments.begin() + 3, arguments.end());
    LogInfo log{nullptr, print_problem};

    std::string configuration;
    std::vector<std::string> view_disks;
    int failed = 0;
    try {
        const ec_status status =
            ixfs_prepare_vmir(creds, disks, &log, configuration, view_disks, true);
        if (status != EC_OK)
            throw EcStatusException(status, "not prepared");
        std::cout << configuration << '\n';
        for (const std::string& disk : view_disks)
            std::cout << disk << '\n';
    } catch (const std::exception& error) { // memory can be short, too
        std::cerr << error.what() << '\n';
        failed = 1;
    }
    if (is_mounted(arguments[0])) {
        std::cerr << "still mounted: " << arguments[0] << '\n';
        failed = 1;
    }
    return failed;
}
