#!/bin/sh
# Makes a host of the namespaces that it is started in, and becomes its first process, an sshd.
#   start_host.sh PLACE NAME KEYS STATE-SIZE
# Its files are those of this machine until it writes them, and its own from then on: below PLACE, in memory.
set -e
echo made
place=$1 name=$2 keys=$3 size=$4
exec >"$place.log" 2>&1
mount -t tmpfs -o mode=755,size=512m none "$place"
mkdir "$place/changed" "$place/work" "$place/root"
mount -t overlay -o "lowerdir=/,upperdir=$place/changed,workdir=$place/work" overlay "$place/root"
cd "$place/root"
mount --rbind /dev dev
mount -t proc proc proc
mount -t tmpfs -o mode=755 none run
mount -t tmpfs -o mode=1777 none tmp
mount -t tmpfs -o mode=700 none root
hostname "$name"
echo "$name" >etc/hostname
rm -f etc/machine-id
cp "$keys/$name.machine-id" etc/machine-id
chroot . dpkg --purge ombry-sec-client-config >/dev/null 2>&1
# It knows no sources of packages, and keeps no index of its manual: both would take longer than all the rest.
mount -t tmpfs none var/lib/apt/lists
rm -f var/lib/man-db/auto-update
rm -rf var/lib/Quennet var/cache/ombry-sec-client-config.deb
mkdir var/lib/Quennet
mount -t tmpfs -o "mode=700,size=$size" none var/lib/Quennet
mkdir -p run/sshd etc/ssh
cp "$keys/$name" etc/ssh/fleet_host_key
cp "$keys/controller.pub" etc/ssh/fleet_keys
cat >etc/ssh/fleet_config <<END
HostKey /etc/ssh/fleet_host_key
AuthorizedKeysFile /etc/ssh/fleet_keys
PasswordAuthentication no
PermitRootLogin prohibit-password
UsePAM no
UseDNS no
MaxStartups 100
Subsystem sftp internal-sftp
END
exec chroot . /usr/sbin/sshd -D -e -f /etc/ssh/fleet_config
