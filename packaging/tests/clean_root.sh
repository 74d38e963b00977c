#!/usr/bin/env bash
# Makes a clean Debian 12 root for an architecture, once, and prints its path: nothing but the base
# system and what the packages depend on, so that installing them needs no network.
#
#   clean_root.sh {amd64|armhf} [PACKAGE...]     with these packages besides, as a root of its own
#
# Needs root rights. The armhf root is unpacked and used under user-mode emulation, for which the
# kernel is told of the emulator where it does not know it.
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/roots.sh
. scripts/lib/roots.sh

architecture=$1
shift
# The service manager is there as on the device; python3 and ps are for the documented commands. What
# comes last is there to boot the root.
included=(fontconfig fonts-dejavu-core fonts-droid-fallback fonts-liberation init-system-helpers systemd libcairo2
          procps strace libsdl2-2.0-0 libchafa0 libwebp7 libwebpmux3 libpng16-16 libfreetype6 libicu72
          libglib2.0-0 libcsv3 libgettextpo0 systemd-sysv udev kmod dbus v4l-utils initramfs-tools e2fsprogs)
if [ "$architecture" = amd64 ]; then
  included+=(python3-minimal)
fi
included+=("$@")

emulator_known() { [ -e /proc/sys/fs/binfmt_misc/qemu-arm ]; }
introduce_emulator() {
  [ -e /proc/sys/fs/binfmt_misc/register ] ||
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  cat /usr/lib/binfmt.d/qemu-arm.conf >/proc/sys/fs/binfmt_misc/register
}

need_packages mmdebstrap >&2
if [ "$architecture" = armhf ]; then
  need_packages qemu-user-static arch-test >&2
  emulator_known || introduce_emulator
fi

sum=$(echo "1 $architecture ${included[*]}" | sha256sum)
path=$(cache_folder)/clean-$architecture-${sum:0:12}
make_root() {
  local uri list
  uri=$(debian_uri)
  [ -n "$uri" ] || { echo 'apt knows no Debian bookworm archive to take packages from' >&2; return 1; }
  list=$(IFS=,; echo "${included[*]}")
  rm -rf "$1"
  # Nobody needs what a power cut leaves of it.
  mmdebstrap --quiet --architectures="$architecture" --variant=minbase --include="$list" \
    --dpkgopt=force-unsafe-io \
    bookworm "$1" "deb $uri bookworm main" >&2
}
if [ ! -d "$path" ]; then
  mkdir -p "$(cache_folder)"
  work=$(mktemp -d "$path.XXXXXX")
  echo "unpacking a clean $architecture root into $path" >&2
  retry make_root "$work/root" || { rm -rf "$work"; exit 1; }
  mv -T "$work/root" "$path" 2>/dev/null || [ -d "$path" ]
  rm -rf "$work"
fi
echo "$path"
