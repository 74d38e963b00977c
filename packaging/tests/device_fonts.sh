#!/bin/sh
# Runs a command on a machine whose only fonts are those that the splash falls back to, with a fresh
# font cache. Nothing of that is seen outside of the command.
#
#   [WITHOUT_NARROW=1] device_fonts.sh COMMAND...
set -eu
if [ "${1:-}" != --inside ]; then
  if [ "$(id -u)" -eq 0 ]; then
    exec unshare --mount --propagation private "$0" --inside "$@"
  fi
  exec unshare --user --map-root-user --mount --propagation private "$0" --inside "$@"
fi
shift
fonts=$(mktemp -d)
mkdir "$fonts/truetype"
for family in dejavu droid liberation; do
  mkdir "$fonts/truetype/$family"
done
cp -p /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf /usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf \
  /usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf /usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf \
  /usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf /usr/share/fonts/truetype/dejavu/DejaVuSerif-Bold.ttf \
  "$fonts/truetype/dejavu"
[ -n "${WITHOUT_NARROW:-}" ] ||
  cp -p /usr/share/fonts/truetype/liberation/LiberationSansNarrow*.ttf "$fonts/truetype/liberation"
cp -p /usr/share/fonts/truetype/droid/DroidSansFallback*.ttf "$fonts/truetype/droid"
trap 'rm -rf "$fonts"' EXIT
mount --bind "$fonts" /usr/share/fonts
mount -t tmpfs fonts /usr/local/share/fonts
mount -t tmpfs cache /var/cache/fontconfig
fc-cache --system-only
status=0
"$@" || status=$?
umount /var/cache/fontconfig /usr/local/share/fonts /usr/share/fonts
exit "$status"
