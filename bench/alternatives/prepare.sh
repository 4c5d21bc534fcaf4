#!/bin/sh
# What a user might write in place of the library: prepares a VM's disks with sed and ln.
#
#     prepare.sh HELPER SERVER PORT BACKUP_ID < DISKS
#
# Standard input holds the disks in datastore form, one a line. Prints those of the view. It checks
# nothing, locks nothing, and knows only names that mean nothing to the shell or to sed.
set -eu
helper=$1 server=$2 port=$3 backup_id=$4
directory=/usr/varnis/var/ixfs/$server
image=backups/${backup_id%_*}/allusers/full/${backup_id##*_}

mkdir -p "$directory"
mount_point=$("$helper" mount -server "$server" -port "$port" -cred mount-cred "$directory" |
    sed -n 's/^MOUNTPOINT=//p')
view=$mount_point/$image/_vmir
mkdir -p "$view"
used=' '
while read -r disk; do
    descriptor=backups${disk#*backups}
    base=${descriptor##*/}
    base=${base%.vmdk.desc}
    case $base in
    *-??????) base=${base%-??????} ;; # a snapshot's suffix
    esac
    name=$base number=0
    while case $used in *" $name "*) true ;; *) false ;; esac do
        number=$((number + 1))
        name="$base($number)"
    done
    used="$used$name "
    sed "s/^\(RW .*\) VMFS .*/\1 VMFS \"$name-flat.vmdk\"\r/" \
        "$mount_point/$descriptor" >"$view/$name.vmdk"
    ln "$mount_point/${descriptor%.desc}" "$view/$name-flat.vmdk"
    echo "${disk%%]*}] $image/_vmir/$name.vmdk"
done
"$helper" umount -f -server "$server" -port "$port" -cred unmount-cred "$mount_point" >/dev/null
