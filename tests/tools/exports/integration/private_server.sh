#!/bin/bash
# Runs a command where /etc and /var/lib/nfs are copies of the host's that go with it: as root, in a mount namespace of
# its own. usage: private_server.sh SCRATCH_FOLDER COMMAND...
set -euo pipefail
scratch=$1
shift
if [[ ${TOVAN_PRIVATE_SERVER:-} != inside ]]; then
  TOVAN_PRIVATE_SERVER=inside exec unshare --mount --propagation private -- "$BASH" "$0" "$scratch" "$@"
fi
mkdir -p "$scratch/etc" "$scratch/nfs"
cp -a /etc/. "$scratch/etc/"
rm -rf "$scratch/etc/exports.d"
mkdir "$scratch/etc/exports.d"
: >"$scratch/etc/exports"
: >"$scratch/nfs/etab"
: >"$scratch/nfs/rmtab"
mount --bind "$scratch/etc" /etc
mount --bind "$scratch/nfs" /var/lib/nfs
exec "$@"
