/* A mount helper that does what the server's name says, at next to no cost.
 *
 *   plain           bind-mounts /usr/varnis/var/fault-images/plain, and unmounts it
 *   tells-path      the same with its own image, and tells a mount path, so that libixfs looks
 *                   whether the mount is alive and removes the mount point after the unmount
 *   empty           as tells-path
 *   fails-unmount   the same, but leaves the mount in place on unmount and reports a failure
 *   busy            never does anything but tell that it is too busy
 *
 * Any other name is as plain. Takes the command lines that libixfs writes.
 */
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>

enum { success = 0, failure = 5, too_busy = 25 };

static const char* option(int count, char** arguments, const char* name)
{
    for (int i = 2; i + 1 < count; ++i) {
        if (strcmp(arguments[i], name) == 0)
            return arguments[i + 1];
    }
    return "";
}

static int mount_image(const char* server, const char* directory)
{
    char image[1024];
    snprintf(image, sizeof(image), "/usr/varnis/var/fault-images/%s", server);
    if (mount(image, directory, NULL, MS_BIND, NULL) != 0)
        return failure;
    if (strcmp(server, "tells-path") == 0 || strcmp(server, "empty") == 0)
        puts("MNTPATH=/m/x");
    printf("MOUNTPOINT=%s\n", directory);
    return success;
}

static int unmount_image(const char* server, const char* directory)
{
    if (strcmp(server, "fails-unmount") == 0)
        return failure;
    return umount2(directory, MNT_DETACH) == 0 ? success : failure;
}

int main(int count, char** arguments)
{
    if (count < 3)
        return 2;
    const char* const server = option(count, arguments, "-server");
    const char* const directory = arguments[count - 1];
    int status = too_busy;
    if (strcmp(server, "busy") != 0)
        status = strcmp(arguments[1], "mount") == 0 ? mount_image(server, directory)
                                                    : unmount_image(server, directory);
    printf("EXIT_STATUS=%d\n", status);
    return 0;
}
