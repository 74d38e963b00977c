# Sourced by the scripts that run the armhf build's tests under user-mode emulation.
# shellcheck shell=bash
# shellcheck source-path=SCRIPTDIR source=roots.sh
. "$(dirname "${BASH_SOURCE[0]}")/roots.sh"

EMULATION=build/armhf/emulation

# copy_runtime SYSROOT ROOT: what a program needs to run, where any user may read it; the cache may lie in
# somebody's home.
copy_runtime() {
  local sysroot=$1 root=$2
  [ "$(cat "$root/origin" 2>/dev/null)" != "$sysroot" ] || return 0
  rm -rf "$root"
  mkdir -p "$root/usr/lib" "$root/usr/share" "$root/etc"
  cp -a "$sysroot/lib" "$root/" &&
    cp -a "$sysroot/usr/lib/arm-linux-gnueabihf" "$root/usr/lib/" &&
    cp -a "$sysroot/usr/share/fonts" "$sysroot/usr/share/fontconfig" "$root/usr/share/" &&
    cp -a "$sysroot/etc/fonts" "$root/etc/" &&
    chmod 755 "$root" && echo "$sysroot" >"$root/origin"
}

# prepare_emulation: a folder with the emulator under the program's name, which its threads then bear; with
# the libraries that are preloaded, for the program and for the host's shells that it starts; and with
# fonts.conf, so that the program and the pages that it is compared with are drawn alike.
prepare_emulation() {
  local sysroot
  need_armhf || return
  sysroot=$(need_root sysroot) || return
  mkdir -p "$EMULATION/lib" "$EMULATION/cache"
  chmod 1777 "$EMULATION/cache" # any user may fill it
  ln -sfn "$(command -v qemu-arm-static)" "$EMULATION/bootlume"
  ln -sfn "$PWD/build/armhf/lib" "$EMULATION/lib/arm-linux-gnueabihf"
  ln -sfn "$PWD/build/release/lib" "$EMULATION/lib/$(gcc -print-multiarch)"
  copy_runtime "$sysroot" "$EMULATION/root" || return
  cat >"$EMULATION/fonts.conf" <<END
<?xml version="1.0"?>
<fontconfig>
  <dir>$PWD/$EMULATION/root/usr/share/fonts</dir>
  <include>$PWD/$EMULATION/root/etc/fonts/conf.d</include>
  <cachedir>$PWD/$EMULATION/cache</cachedir>
</fontconfig>
END
}

build_armhf() {
  prepare_emulation && build_preset armhf
}

# An emulated splash is several times slower: its waits may be longer, which costs time in a failure only.
emulated_system_tests() {
  VIRTUAL_DEVICE_TEST_DEADLINE=60 \
    FONTCONFIG_FILE=$PWD/$EMULATION/fonts.conf python_tests system-tests -rs --build-dir=build/armhf \
    --run-prefix="$PWD/$EMULATION/bootlume -L $PWD/$EMULATION/root" --preload-dir="$PWD/$EMULATION/\$LIB"
}
