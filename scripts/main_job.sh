#!/usr/bin/env bash
# The main job, from the first install to the last process gone: in a scratch home, installs the two sample services,
# shows what was written, starts the daemon and the services, ends one of them by force and sees it come back, publishes
# a folder and reads it back over NFS where it can, draws a service's week, scores the host, takes everything down
# again, and shows what was logged meanwhile.
# usage: main_job.sh BUILD_FOLDER HOME_FOLDER
set -euo pipefail
[[ $# -eq 2 ]] || { echo "usage: main_job.sh BUILD_FOLDER HOME_FOLDER" >&2; exit 2; }
here=$(dirname "$(readlink -f "$0")")
tovanctl=$(readlink -f "$1")/bin/tovanctl
if [[ -d $2 ]]; then again=yes; else again=; fi
mkdir -p "$2"
HOME=$(readlink -f "$2")
export HOME TMPDIR="$HOME/tmp"
mkdir -p "$TMPDIR"

if [[ -t 1 ]]; then bold=$'\e[1m'; plain=$'\e[0m'; else bold=; plain=; fi
say() { printf '\n%s%s%s\n' "$bold" "$*" "$plain"; }
die() { echo "main job: $*" >&2; exit 1; }
job_controller=jobcontroller:com.brant.lumisphere.cluster.admin
transcoder=servicecontroller:com.brant.klarn.transcoder.klarn

# Trigger files lie in /tmp under the service's name, so that of a service of this user's own home is the same file.
for trigger in /tmp/com.brant.klarn.transcoder.klarn*.launchagent."$(id -u)"; do
  [[ ! -e $trigger ]] || die "$trigger is there: this user's own transcoder runs. End it first (\`tovanctl down\`)," \
    "or remove the file when a run that was cut short left it behind."
done

# shellcheck source=scripts/storage_steps.sh
source "$here/storage_steps.sh"

# A bus and a job host of this home's own: nothing of the user's session is used. Sockets need short paths.
sockets=$(mktemp -d /tmp/tovan-run-XXXXXX)
export TOVAN_LAUNCHD=embedded TOVAN_LAUNCHD_FOLDER=$sockets/launchd TOVAN_BUS_FOLDER=$sockets/bus
export DBUS_SESSION_BUS_ADDRESS=unix:path=$sockets/session
bus=
clean_up() {
  local status=$?
  trap - EXIT
  storage_clean_up
  ((status == 0)) || "$tovanctl" down >/dev/null 2>&1 || true
  [[ -z $bus ]] || kill "$bus" 2>/dev/null || true
  rm -rf "$sockets"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# state_and_parent PID: "S 1"; nothing when there is no such process.
state_and_parent() {
  local line
  { read -r line <"/proc/$1/stat"; } 2>/dev/null || return 0
  read -ra line <<<"${line##*)}"
  echo "${line[0]} ${line[1]}"
}

# Every process that was started with this home, but this script, what it runs itself, and the bus.
processes_of_home() {
  local environment pid state parent
  for environment in /proc/[0-9]*/environ; do
    pid=${environment#/proc/}
    pid=${pid%/environ}
    [[ $pid != "$$" && $pid != "$BASHPID" && $pid != "$bus" ]] || continue
    { tr '\0' '\n' <"$environment" | grep -qxF "HOME=$HOME"; } 2>/dev/null || continue
    read -r state parent < <(state_and_parent "$pid") || continue
    [[ $parent == "$BASHPID" || $state == Z ]] || echo "$pid"
  done
}

# processes SERVICE: its process ids, in the order of its instances.
processes() {
  "$tovanctl" status --json | python3 -c '
import json, sys
for service in json.load(sys.stdin)["services"]:
    if service["name"] == sys.argv[1]:
        print(*[one["pid"] for one in service["instances"] if one["pid"]])' "$1"
}

# Whether a process runs; one that has ended and waits to be collected does not.
runs() { [[ $(state_and_parent "$1") == [!ZX]* ]]; }

# await_end PID SECONDS
await_end() {
  local deadline=$((SECONDS + $2))
  while runs "$1"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.05
  done
}

# A home of an earlier version has a configuration that the daemon would replace: it begins anew.
step() { "$tovanctl" config upgrade --plan --json | python3 -c 'import json, sys; print(json.load(sys.stdin)["step"])'; }
if [[ -n $again && $(step) == @(create|replace) ]]; then
  "$tovanctl" config upgrade >/dev/null
  again=
fi

if [[ -n $again ]]; then
  say "This home was used before: $HOME"
  before=$("$tovanctl" service get "$transcoder" Instances)
  echo "The transcoder has $before instances there, as the user left it. Installing the same bundles again."
else
  say "A new scratch home: $HOME"
fi

config=$("$tovanctl" config path)
[[ -z $again ]] || cp "$config" "$TMPDIR/before.plist"

say "1. Installing the two service bundles of Lumisphere.framework"
"$tovanctl" service install
if [[ -n $again ]]; then
  cmp "$TMPDIR/before.plist" "$config" || die "the reinstall changed the configuration file"
  echo "The configuration file is byte for byte what it was before."
fi

say "2. Letting them log to files, which goes into their job descriptions, and enabling them"
for service in "$job_controller" "$transcoder"; do "$tovanctl" service set "$service" Logging true; done
"$tovanctl" service install
for service in "$job_controller" "$transcoder"; do "$tovanctl" service enable "$service"; done

say "3. The services of this user"
"$tovanctl" service list

say "4. The configuration file, $config: what differs from the shipped defaults, then all of it"
"$tovanctl" config diff
cat "$config"

say "5. One job description for each instance of the launch-agent service"
shopt -s nullglob
jobs=("$HOME"/Library/LaunchAgents/*.plist)
((${#jobs[@]})) || die "no job description was written"
for job in "${jobs[@]}"; do
  echo "--- $job"
  cat "$job"
done

say "6. Read back by two readers that are not ours"
"$here/read_back.py" "$config" "${jobs[@]}"

began=$(date '+%Y-%m-%d %H:%M:%S')
say "7. Starting the daemon and the services, on a message bus of this home's own"
bus=$(dbus-daemon --session --fork --nopidfile --nosyslog --print-pid --address="$DBUS_SESSION_BUS_ADDRESS")
"$tovanctl" doctor >"$TMPDIR/doctor" || { cat "$TMPDIR/doctor"; die "this host is not as it should be (above)"; }
"$tovanctl" up
"$tovanctl" status

say "8. Ending one transcoder by force (SIGKILL) and seeing it come back"
read -r victim _ < <(processes "$transcoder")
read -ra all < <(echo "$(processes "$job_controller") $(processes "$transcoder")")
kill -KILL "$victim"
await_end "$victim" 10 || die "process $victim survived SIGKILL"
"$tovanctl" status
echo
echo "Its job starts again not sooner than ten seconds after its last start; waiting for it."
"$tovanctl" service sync "$transcoder"
"$tovanctl" status
read -r heir _ < <(processes "$transcoder")
[[ $heir != "$victim" ]] || die "the new process has the old one's id"
all+=("$heir")

storage_steps

say "12. The transcoder's week, what this host is worth in the cluster, and the configuration file's digest"
"$tovanctl" schedule set "$transcoder" weekdays off 09:00-17:00
"$tovanctl" schedule show "$transcoder" --svg "$HOME/week.svg"
"$tovanctl" score
digest=$("$tovanctl" digest "$config")
[[ $digest == "$(sha1sum "$config")" ]] || die "sha1sum has another digest than $digest"
echo "$digest"
echo "The week is also a picture, $HOME/week.svg; sha1sum has the same digest."

say "13. Taking everything down"
daemon=$("$tovanctl" status --json | python3 -c 'import json, sys; print(json.load(sys.stdin)["daemon"]["pid"])')
"$tovanctl" down
"$tovanctl" status
for pid in "$daemon" "${all[@]}"; do
  ! runs "$pid" || die "process $pid is still there"
done
for pid in $(processes_of_home); do
  await_end "$pid" 10 || die "process $pid is left: $(tr '\0' ' ' <"/proc/$pid/cmdline")"
done
kill "$bus"
await_end "$bus" 10 || die "the bus does not end"
bus=
echo
echo "Nothing is left running: the daemon ($daemon), the services (${all[*]}), the job host and the bus are gone."

say "14. What they logged, as a tree with durations"
for service in mervaned "$job_controller" "$transcoder"; do
  echo "--- $service"
  "$tovanctl" log show "$service" --marks --since "$began"
done
for log in "$HOME"/Library/Logs/Lumisphere/*.log; do
  { cat "$log" && echo '</logs>'; } |
    python3 -c 'import sys, xml.dom.minidom; xml.dom.minidom.parse(sys.stdin.buffer)' || die "$log is not well-formed"
done
ended=$("$tovanctl" log show "$job_controller" --since "$began" --grep '^log-session$' --json |
  python3 -c 'import json, sys; print([one["mark"] for one in json.load(sys.stdin)["records"]])')
[[ $ended == "['begin', 'end']" ]] || die "the job controller's log has the session marks $ended"
echo
echo "Each log, with its end tag appended, is one XML document to a parser that is not ours."

say "What happened"
echo "- Both bundles lie in the framework tree of the build; their information dictionaries describe the services."
echo "- The service registry is the section \"mervaneservices\" of $config."
echo "- ${#jobs[@]} job descriptions lie in $HOME/Library/LaunchAgents, one for each transcoder instance."
echo "- The daemon ran the job controller, launch agents ran the transcoder; the one that was killed, process $victim,"
echo "  was replaced by process $heir."
echo "- Two processes published $shared through the daemon; it was taken off with the last of them."
if [[ -n $again ]]; then
  after=$("$tovanctl" service get "$transcoder" Instances)
  [[ $before == "$after" ]] || die "the reinstall changed the instance count from $before to $after"
  echo "- The reinstall left the registry as it was: the transcoder still has $after instances."
else
  "$tovanctl" service set "$transcoder" Instances 3 >/dev/null
  echo "- The transcoder's instance count was then set to 3, as a user might: run ./dev run again to see a reinstall"
  echo "  keep it."
fi
