// ixfs-loopback: stands in for the mount helper, with bind mounts instead of a media server.
#include "command_line.h"
#include "control_files.h"
#include "file_lock.h"
#include "help_text.h"

#include <ixfs.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <sys/file.h>
#include <sys/mount.h>
#include <thread>

namespace
{

namespace fs = std::filesystem;

const fs::path store = "/usr/varnis/var/ixfs-loopback";
const fs::path control_directory = store / ".control";

void complain(const std::string& text)
{
    std::cerr << "ixfs-loopback: " << text << std::endl;
}

ec_status system_error(const std::string& operation, const std::string& path)
{
    complain(operation + " " + path + ": " + std::strerror(errno));
    return EC_SYSTEM_ERROR;
}

class Answer
{
public:
    explicit Answer(const ControlFiles& control) : control_(control) {}

    void print(const std::string& key, const std::string& value) const
    {
        if (!control_.leaves_out(key))
            std::cout << key << "=" << value << std::endl;
    }

private:
    const ControlFiles& control_;
};

ec_status mount_image(const Call& call, const Answer& answer)
{
    // The server's name is one directory of the store, and not the control directory.
    if (call.server.front() == '.' || call.server.find('/') != std::string::npos) {
        complain("not a server name: " + call.server);
        return EC_INVALID_PARAMETER;
    }
    const fs::path image = store / call.server;
    if (!fs::is_directory(image)) {
        complain("no image of this server: " + image.string());
        return EC_FILE_NOT_FOUND;
    }
    if (mount(image.c_str(), call.directory.c_str(), nullptr, MS_BIND, nullptr) != 0)
        return system_error("mount on", call.directory);
    // libixfs takes a mount path only while it knows no mount point, so this goes first.
    answer.print("MNTPATH", image);
    answer.print("MOUNTPOINT", call.directory);
    return EC_OK;
}

ec_status unmount_image(const Call& call, const ControlFiles& control)
{
    if (control.keeps_mount())
        return EC_OK;
    // A forced unmount is never "busy". MNT_FORCE would not do here: on a bind mount it fails for
    // open files, and it ends the requests of the file system that holds the image.
    if (umount2(call.directory.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0)
        return system_error("unmount", call.directory);
    return EC_OK;
}

int perform(const Call& call, const ControlFiles& control, const Answer& answer)
{
    std::this_thread::sleep_for(control.hang());
    if (control.take_busy())
        return EC_SERVER_BUSY;
    if (const int status = control.status(); status != EC_OK)
        return status;
    if (control.credential().value_or(call.credential) != call.credential) {
        complain("wrong credential");
        return EC_INVALID_PARAMETER;
    }
    return call.command == Command::mount ? mount_image(call, answer)
                                          : unmount_image(call, control);
}

std::string join(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

int serve(const Call& call, const std::string& line)
{
    fs::create_directory(control_directory); // in a store that exists
    append_line(control_directory / "calls", line);
    const FileLock running(control_directory / "running", O_RDWR | O_CREAT, LOCK_EX | LOCK_NB);
    if (!running.held())
        append_line(control_directory / "overlaps", line);

    const bool unmount = call.command == Command::unmount;
    const ControlFiles control(control_directory / (unmount ? "umount" : "mount"));
    const Answer answer(control);
    const int status = perform(call, control, answer);
    answer.print("EXIT_STATUS", std::to_string(status));
    return status == EC_OK ? 0 : 1;
}

int refuse(ec_status status, const std::string& reason)
{
    complain(reason);
    std::cout << "EXIT_STATUS=" << status << std::endl;
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string>{"--help"}) {
        std::cout << help_text;
        return 0;
    }
    const std::string line = join(arguments);
    const auto call = parse_call(arguments);
    if (!call)
        return refuse(EC_INVALID_PARAMETER, "not a command line of libixfs: " + line);
    try {
        return serve(*call, line);
    } catch (const std::exception& error) {
        return refuse(EC_SYSTEM_ERROR, error.what());
    }
}
