#!/bin/sh
# Runs a command in a root, without a trace in it: what changes lands in a folder of changes. All
# processes end with the command.
#
#   in_root.sh ROOT CHANGES COMMAND...
#
# CHANGES/upper holds what the command made, changed or (as a whiteout) removed. Needs root rights.
set -eu
if [ "$1" != --inside ]; then
  exec unshare --mount --pid --fork --kill-child --propagation private "$0" --inside "$@"
fi
root=$2 changes=$3
shift 3
mkdir -p "$changes/upper" "$changes/work" "$changes/merged"
mount -t overlay overlay -o "lowerdir=$root,upperdir=$changes/upper,workdir=$changes/work" \
  "$changes/merged"
mount -t proc proc "$changes/merged/proc"
mount --rbind /dev "$changes/merged/dev"
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
  HOME=/root chroot "$changes/merged" "$@"
