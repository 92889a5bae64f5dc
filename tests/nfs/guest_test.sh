#!/bin/bash
# Runs the tests of real NFS in a guest: a kernel of user-mode-linux, which has the NFS server and client that the host's
# kernel may lack, on the host's own tree, read-only. usage: guest_test.sh SOURCE_FOLDER BUILD_FOLDER [GTEST_FILTER]
# Exit codes: 0 all passed, 1 not, 77 cannot be run here (the reason is printed).
set -euo pipefail
source=$1
build=$2
filter=${3:-*}
limit=240  # seconds; a run takes 70 to 80

skip() { printf 'skipped: %s\n' "$*"; exit 77; }

((EUID == 0)) || skip "only root can make the host's tree read-only for the guest"
for program in linux.uml:user-mode-linux modprobe:kmod ip:iproute2 mkfs.ext4:e2fsprogs mount.nfs:nfs-common \
  exportfs:nfs-kernel-server rpc.mountd:nfs-kernel-server rpcbind:rpcbind; do
  PATH=$PATH:/usr/sbin:/sbin command -v "${program%:*}" >/dev/null || skip "the package ${program#*:} is not installed"
done
unshare --mount --pid --fork true 2>/dev/null || skip "no namespaces may be made here"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tovan-guest-XXXXXX")
trap 'rm -rf "$scratch"' EXIT
# The guest's memory is a file of the host: in memory where there is room for it.
memory=$scratch
[[ -w /dev/shm && $(df --output=avail -k /dev/shm | tail -n 1) -gt 400000 ]] && memory=/dev/shm

printf '#!/bin/bash\nexec /bin/bash %q %q %q %q\n' \
  "$source/tests/nfs/guest_init.sh" "$source" "$build" "$filter" >"$scratch/init"
chmod +x "$scratch/init"

# Ends with whoever runs it, and everything in it with it. Nothing below / but the scratch folder and the memory can be
# written, whatever goes wrong in the guest. Its console is a file: it would wait for the reader of a pipe.
cat >"$scratch/boot" <<'BOOT'
set -e
scratch=$1 memory=$2 shim=$3
mount --bind "$scratch" "$scratch"
mount -o remount,bind,ro /
ulimit -c 0
LD_PRELOAD=$shim HOME=$scratch TMPDIR=$memory linux.uml mem=256M rootfstype=hostfs rootflags=/ ro root=/dev/root \
  init="$scratch/init" con=null con0=null,fd:1 quiet </dev/null >"$scratch/console" 2>"$scratch/kernel"
BOOT
status=0
setpriv --pdeathsig KILL timeout -s KILL "$limit" setpriv --pdeathsig KILL \
  unshare --mount --mount-proc --propagation private --pid --fork --kill-child -- \
  /bin/bash "$scratch/boot" "$scratch" "$memory" "$build/tests/wide_registers.so" || status=$?

if [[ ! -s $scratch/console ]] && grep -q 'ptrace: Operation not permitted' "$scratch/kernel"; then
  skip "no process may trace another here, as user-mode-linux does"
fi
cp "$scratch/console" "$build/tests/nfs-guest.log" 2>/dev/null || true
[[ ! -e $scratch/console ]] || tr -d '\r' <"$scratch/console"
if ! grep -q '^guest: the tests ended with 0' "$scratch/console"; then
  printf 'the guest ended with %d\n' "$status"
  tail -n 40 "$scratch/kernel"
  exit 1
fi
# A test that did not run has not passed.
if grep -q '\[  SKIPPED \]' "$scratch/console" || ! grep -q '\[  PASSED  \] [1-9]' "$scratch/console"; then
  printf 'not every test ran in the guest\n'
  exit 1
fi
