#!/bin/bash
# The first process of the guest (guest_test.sh). The guest is the server, 10.77.1.1 and 10.77.2.1; two network namespaces
# are the hosts "client" (10.77.1.2) and "stranger" (10.77.2.2), each on a wire of its own. usage: guest_init.sh
# SOURCE_FOLDER BUILD_FOLDER GTEST_FILTER
source=$1
build=$2
filter=$3
export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/run/home TMPDIR=/run/home LC_ALL=C.UTF-8
exec >/dev/console 2>&1 </dev/null

say() { printf 'guest: %5.1f s: %s\n' "$(cut -d ' ' -f 1 /proc/uptime)" "$*"; }

# Only these folders can be written.
mount_folders() {
  # Before the overlays: what is tested may lie below one of them.
  if : 2>/dev/null >"$build/guest-can-write"; then say "the host's tree can be written"; return 1; fi
  mount -t proc proc /proc
  mount -t sysfs sys /sys
  mount -t tmpfs tmpfs /run
  mount -t tmpfs tmpfs /var/lib/nfs
  mkdir -p /run/home /run/{etc,tmp}/{upper,work} /run/modules/lib/modules
  ln -s "/usr/lib/uml/modules/$(uname -r)" "/run/modules/lib/modules/$(uname -r)"
  local module
  for module in overlay loop veth nfs nfsv3 nfsv4 nfsd; do modprobe --dirname /run/modules "$module"; done
  local folder
  for folder in etc tmp; do
    mount -t overlay -o "lowerdir=/$folder,upperdir=/run/$folder/upper,workdir=/run/$folder/work" overlay "/$folder"
  done
}

# What is published lies on a disk of the guest, for the server cannot export the host's tree: version 4 is served from
# the root of the disk. /srv/plain is a file system that no server can export.
make_disk() {
  truncate -s 32M /run/disk.image
  mkfs.ext4 -q -O ^has_journal /run/disk.image
  mkdir /run/disk
  mount -o loop /run/disk.image /run/disk
  mkdir -p /run/disk/srv/memory /run/disk/srv/plain
  mount -t tmpfs tmpfs /run/disk/srv/memory
  mount -t ramfs ramfs /run/disk/srv/plain
  mount --rbind /run/disk/srv /srv
}

# connect NAME SUBNET: another host on a wire of its own. The hosts know each other's hardware address for good, so that
# who falls silent is silent, and not "no route to host".
connect() {
  ip netns add "$1"
  ip -n "$1" link set lo up
  ip link add "to-$1" type veth peer name wire netns "$1"
  ip address add "10.77.$2.1/24" dev "to-$1"
  ip -n "$1" address add "10.77.$2.2/24" dev wire
  ip link set "to-$1" up
  ip -n "$1" link set wire up
  local server
  server=$(ip -brief link show "to-$1" | awk '{ print $3 }')
  ip -n "$1" neighbour replace "10.77.$2.1" lladdr "$server" dev wire nud permanent
}

start_server() {
  mkdir -p /run/rpcbind /var/lib/nfs/{sm,sm.bak,v4recovery,rpc_pipefs} /etc/exports.d /etc/tovan
  touch /var/lib/nfs/{etab,rmtab,state}
  : >/etc/exports
  # A request of a soft mount is given up after four seconds, not after three minutes.
  printf '[ NFSMount_Global_Options ]\ntimeo=20\nretrans=1\n' >/etc/nfsmount.conf
  printf '[exports]\nrootdir=/run/disk\n' >/etc/nfs.conf
  mount -t nfsd nfsd /proc/fs/nfsd
  rpcbind -w
  rpc.nfsd 4
  rpc.mountd --port 20048
  echo Y >/proc/fs/nfsd/v4_end_grace  # there are no clients of former days to wait for
}

run() {
  set -e
  mount_folders
  make_disk
  ip link set lo up
  connect client 1
  connect stranger 2
  start_server
  say "$(uname -sr), $(exportfs --version 2>/dev/null || mount.nfs -V): the server runs"
  set +e
  ip netns exec client "$build/tests/nfs_guest_tests" --gtest_color=no --gtest_filter="$filter"
  local status=$?
  say "$(awk '/^Mem(Total|Available)/ { printf "%s %s kB  ", $1, $2 }' /proc/meminfo)"
  return $status
}

(run)
printf 'guest: the tests ended with %d\n' $?
sync
echo 1 >/proc/sys/kernel/sysrq
echo o >/proc/sysrq-trigger
sleep 10
