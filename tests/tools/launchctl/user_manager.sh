#!/bin/bash
# Runs a command beside a real systemd user manager, on a host whose first process is something else. Root, inside
#   unshare --cgroup --pid --fork --kill-child --mount --mount-proc user_manager.sh COMMAND...
# Exit status 77: it could not be set up; the reason is on standard error.
set -u
why() { echo "user_manager.sh: $*" >&2; exit 77; }
groups=/sys/fs/cgroup
mount --make-rprivate / || why "no private mounts"
umount -R "$groups" 2>/dev/null || umount -l "$groups" 2>/dev/null
mount -t cgroup2 cgroup2 "$groups" 2>/dev/null || {
  mount -t tmpfs none "$groups" && mkdir -p "$groups/unified" &&
    mount -t cgroup2 cgroup2 "$groups/unified" 2>/dev/null && groups=$groups/unified
} || why "no control groups"
own=$groups/${HOME##*/}  # the scratch home's name is nobody else's
mkdir "$own" && echo $$ >"$own/cgroup.procs" || why "no control group of its own"
mount -t tmpfs none /run && mkdir -p /run/systemd/system || why "no private /run"
mkdir -m 700 -p "$XDG_RUNTIME_DIR"
manager=/lib/systemd/systemd
[[ -x $manager ]] || why "there is no $manager"
exec 9>&1
env -u TOVAN_LAUNCHD "$manager" --user >"$HOME/manager.log" 2>&1 9>&- &
for _ in {1..100}; do
  state=$(systemctl --user is-system-running 2>/dev/null)
  [[ $state == running || $state == degraded ]] && break
  sleep 0.05
done
[[ $state == running || $state == degraded ]] || why "the manager did not come up: $(tail -n 3 "$HOME/manager.log")"
"$@"
status=$?
systemctl --user exit >/dev/null 2>&1
echo $$ >"$groups/cgroup.procs"
wait
for _ in {1..40}; do  # a group whose last process just ended is busy for a moment
  find "$own" -depth -type d -exec rmdir {} + 2>/dev/null && break
  sleep 0.02
done
exit $status
