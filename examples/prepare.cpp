// Prepares a VM for instant recovery:
//
//     prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS
//
// Standard input holds the credential for the mount and that for the unmount, one a line. A DISK is
// a descriptor in datastore form: "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc".
#include "outcome.h"
#include "safe_words.h"

#include <ixfs_vmir.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

int main(int argc, char* argv[])
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    credentials credentials{};
    const bool good = arguments.size() >= 4 && is_server_name(argv[1]) &&
                      arguments[2].find('/') == std::string::npos &&
                      std::all_of(argv + 3, argv + argc, stays_below) &&
                      read_credentials(&credentials);
    if (!good) {
        std::cerr << "usage: prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS\n" SAFE_WORDS_ARE;
        return 2;
    }
    MountCreds creds{};
    creds.server = arguments[0].c_str();
    creds.port = std::atoi(arguments[1].c_str());
    creds.schedule_type = 0; // a full backup
    creds.timeout = 30;
    creds.mount_cred = credentials.mount;
    creds.unmount_cred = credentials.unmount;
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
    if (is_still_mounted(("/usr/varnis/var/ixfs/" + arguments[0]).c_str()))
        failed = 1;
    return failed;
}
