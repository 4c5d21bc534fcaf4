// What --help prints.
#ifndef IXFS_LOOPBACK_HELP_TEXT_H
#define IXFS_LOOPBACK_HELP_TEXT_H

constexpr const char* help_text =
    R"(Usage: ixfs-loopback mount -server S -port P [-timeout N] -cred C DIR
       ixfs-loopback umount -f -server S -port P -cred C DIR

Plays the mount helper "ixfs" for development and tests: mounts the directory S of the store on DIR,
and answers with the helper's lines. Needs the right to mount. Takes libixfs's command lines only,
with the options in this order.

The store is /usr/varnis/var/ixfs-loopback:
  S/                       the image of server S, seen as the root of its mount
  .control/mount/          files that steer the mount command, each of which may be missing:
    credential             the credential to insist on; any is good without this file
    hang                   seconds, such as 0.5, to wait before doing anything
    busy                   number of next calls to answer with EXIT_STATUS=25; counts down
    status                 number to answer as EXIT_STATUS=, having done nothing; 0: work as usual
    leave-out              response keys not to print, one a line: MNTPATH, MOUNTPOINT, EXIT_STATUS
  .control/umount/         the same for the umount command, and:
    keep                   exists: leave the mount in place, and answer as if it were gone
  .control/calls           written: the arguments of each call, as it begins, one line each
  .control/overlaps        written: the arguments of each call that began while another was running
  .control/running         written: nothing; locked while a call runs

Answers EXIT_STATUS=0 for success, 11 when mounting or unmounting fails, 20 for a wrong credential
or command line, 25 when it plays busy, 142 for a server without an image. The exit status is 0 for
success, else 1.
)";

#endif
