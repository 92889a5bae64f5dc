#!/usr/bin/env bash
# The main job: installs the two sample services in a scratch home and shows what was written.
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
transcoder=servicecontroller:com.brant.klarn.transcoder.klarn

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
  cmp "$TMPDIR/before.plist" "$config" || { echo "the reinstall changed the configuration file" >&2; exit 1; }
  echo "The configuration file is byte for byte what it was before."
fi

say "2. Enabling them"
for service in $("$tovanctl" service list --names); do "$tovanctl" service enable "$service"; done

say "3. The services of this user"
"$tovanctl" service list

say "4. The configuration file, $config"
cat "$config"

say "5. One job description for each instance of the launch-agent service"
shopt -s nullglob
jobs=("$HOME"/Library/LaunchAgents/*.plist)
((${#jobs[@]})) || { echo "no job description was written" >&2; exit 1; }
for job in "${jobs[@]}"; do
  echo "--- $job"
  cat "$job"
done

say "6. Read back by two readers that are not ours"
"$here/read_back.py" "$config" "${jobs[@]}"

say "What happened"
echo "- Both bundles lie in the framework tree of the build; their information dictionaries describe the services."
echo "- The service registry is the section \"mervaneservices\" of $config."
echo "- ${#jobs[@]} job descriptions lie in $HOME/Library/LaunchAgents, one for each transcoder instance."
if [[ -n $again ]]; then
  after=$("$tovanctl" service get "$transcoder" Instances)
  [[ $before == "$after" ]] || { echo "the reinstall changed the instance count from $before to $after" >&2; exit 1; }
  echo "- The reinstall left the registry as it was: the transcoder still has $after instances."
else
  "$tovanctl" service set "$transcoder" Instances 3 >/dev/null
  echo "- The transcoder's instance count was then set to 3, as a user might: run ./dev run again to see a reinstall"
  echo "  keep it."
fi
