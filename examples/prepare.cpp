// Prepares a VM for instant recovery:
//
//     prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS
//
// Standard input holds the credential for the mount and that for the unmount, one a line. A DISK is
// a descriptor in datastore form: "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc".
#include <ixfs_vmir.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace
{

// Some lines of the highest severity are no problems. Their messages begin with "INF -".
void print_problem(int severity, const char* tag, const char* message)
{
    if (severity <= IXFS_LOG_WRN && std::strncmp(message, "INF -", 5) != 0)
        std::cerr << tag << ' ' << message;
}

} // namespace

int main(int argc, char* argv[])
{
    std::string mount_cred;
    std::string unmount_cred;
    if (argc < 5 || !std::getline(std::cin, mount_cred) || !std::getline(std::cin, unmount_cred)) {
        std::cerr << "usage: prepare SERVER PORT BACKUP_ID DISK... < CREDENTIALS\n";
        return 2;
    }
    MountCreds creds{};
    creds.server = argv[1];
    creds.port = std::atoi(argv[2]);
    creds.schedule_type = 0; // a full backup
    creds.timeout = 30;
    creds.mount_cred = mount_cred.c_str();
    creds.unmount_cred = unmount_cred.c_str();
    creds.backup_id = argv[3];
    std::vector<std::string> disks(argv + 4, argv + argc);
    LogInfo log{nullptr, print_problem};

    std::string configuration;
    std::vector<std::string> view_disks;
    const ec_status status = ixfs_prepare_vmir(creds, disks, &log, configuration, view_disks, true);
    if (status != EC_OK) {
        std::cerr << EcStatusException(status, "not prepared").what() << '\n';
        return 1;
    }
    std::cout << configuration << '\n';
    for (const std::string& disk : view_disks)
        std::cout << disk << '\n';
}
