# The main job's steps with shared storage, for main_job.sh, which sources this: two processes publish a folder through
# the daemon, a file is read back over NFS where this machine can serve it, one of the processes is killed, and
# everything is given back.
# Uses tovanctl, HOME, TMPDIR, say, die, runs, await_end and here of main_job.sh.
# shellcheck shell=bash disable=SC2154 # what main_job.sh sets

storage_processes=()
nfs_port=

# What fails later leaves nothing behind.
storage_clean_up() {
  ((${#storage_processes[@]} == 0)) || kill -KILL "${storage_processes[@]}" 2>/dev/null || true
}

# start_aside NAME COMMAND...: in the background, its output in $TMPDIR/NAME.log, its process id in $started.
start_aside() {
  local log=$TMPDIR/$1.log
  shift
  "$@" >"$log" 2>&1 </dev/null &
  started=$!
  disown "$started"
  storage_processes+=("$started")
}

# await SECONDS COMMAND...: until the command succeeds.
await() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.1
  done
}

# holders: "CLIENT PID STATE" of each one that holds the folder.
holders() {
  "$tovanctl" storage list --json | python3 -c '
import json, sys
for export in json.load(sys.stdin)["exports"]:
    if export["path"] == sys.argv[1]:
        for one in export["holders"]:
            print(one["client"], one["pid"], one["process"])' "$shared"
}
has_holders() { [[ $(holders | wc -l) == "$1" ]]; }

# Why no NFS server can be tried here; nothing when one can.
reason_against_nfs() {
  local program
  ((EUID == 0)) || { echo "only root can run one in folders of its own"; return; }
  for program in ganesha.nfsd nfs-cat; do
    command -v "$program" >/dev/null ||
      { echo "there is no $program (apt-get install nfs-ganesha-vfs libnfs-utils)"; return; }
  done
  unshare --mount true 2>/dev/null || echo "there are no mount namespaces"
}

read_over_nfs() { timeout 5 nfs-cat "nfs://127.0.0.1$shared/greeting?version=4&nfsport=$nfs_port" 2>/dev/null; }
is_served() { [[ $(read_over_nfs) == "$(cat "$shared/greeting")" ]]; }
is_not_served() { ! is_served; }

# A server of this job's own, fed by tovan-exports.
serve_over_nfs() {
  local scratch=$TMPDIR/nfs
  rm -rf "$scratch"
  mkdir -p "$scratch/nfs/ganesha"
  nfs_port=$((20000 + RANDOM % 12000))
  printf '%s\n' "host = 127.0.0.1 ro,insecure" "server = ganesha" "ganesha-port = $nfs_port" \
    "ganesha-pid-file = $scratch/ganesha.pid" >"$scratch/exports.conf"
  start_aside tovan-exports "$(dirname "$tovanctl")/tovan-exports" --foreground \
    --configuration "$scratch/exports.conf" --output "$scratch/ganesha.conf"
  exporter=$started
  await 10 test -s "$scratch/ganesha.conf" || die "tovan-exports wrote nothing: $(cat "$TMPDIR/tovan-exports.log")"
  start_aside ganesha bash "$here/../tests/tools/exports/integration/private_server.sh" "$scratch" \
    ganesha.nfsd -F -f "$scratch/ganesha.conf" -L "$scratch/log" -p "$scratch/ganesha.pid"
  server=$started
  await 20 is_served || die "nothing was read over NFS: $(tail -n 5 "$scratch/log" "$TMPDIR/ganesha.log")"
}

stop_aside() {
  local pid
  kill "$@" 2>/dev/null || true
  for pid in "$@"; do
    await_end "$pid" 10 || { kill -KILL "$pid"; await_end "$pid" 5; } || die "process $pid does not end"
  done
}

storage_steps() {
  local reason renderer viewer started exporter server
  shared=$HOME/shared
  exports_file="$HOME/Library/Application Support/Lumisphere/exports"
  mkdir -p "$shared"
  echo "read back at $(date '+%H:%M:%S')" >"$shared/greeting"

  say "9. Publishing a folder through the daemon, from two other processes"
  start_aside renderer "$tovanctl" storage publish "$shared" --client renderer --hold
  renderer=$started
  start_aside viewer "$tovanctl" storage publish "$shared" --client viewer --hold
  viewer=$started
  await 20 has_holders 2 || die "the folder is not published: $(cat "$TMPDIR/renderer.log" "$TMPDIR/viewer.log")"
  "$tovanctl" storage list
  echo
  echo "The exports file has one line for both: $(cat "$exports_file")"

  say "10. Reading a file of it back over NFS"
  reason=$(reason_against_nfs)
  if [[ -z $reason ]]; then
    serve_over_nfs
    echo "nfs-cat, from nfs-ganesha, to which tovan-exports handed the line: \"$(read_over_nfs)\""
  else
    echo "No NFS server can be tried here: $reason. Going on without."
  fi

  say "11. Killing one of the two (SIGKILL), and giving back what it held"
  kill -KILL "$renderer"
  await_end "$renderer" 10 || die "process $renderer survived SIGKILL"
  [[ $(holders | sort) == "renderer $renderer gone"$'\n'"viewer $viewer alive" ]] || die "held by: $(holders)"
  "$tovanctl" storage list
  "$tovanctl" storage unpublish "$shared" --client renderer --pid "$renderer"
  stop_aside "$viewer"
  tail -n 1 "$TMPDIR/viewer.log"
  "$tovanctl" storage list
  [[ ! -s $exports_file ]] || die "left in the exports file: $(cat "$exports_file")"
  if [[ -z $reason ]]; then
    await 10 is_not_served || die "the folder is served although nobody holds it"
    echo "The server does not serve it any more."
    stop_aside "$exporter" "$server"
  fi
  storage_processes=()
}
