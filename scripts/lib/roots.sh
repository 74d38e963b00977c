# Sourced by the scripts that build for or boot a board: Debian trees, unpacked once below a cache
# folder. A tree's name holds a checksum of what is in it, so a changed list makes a new tree, and
# a tree that exists is complete: it is made beside its place and renamed into it.
# shellcheck shell=bash
# shellcheck source-path=SCRIPTDIR source=packages.sh
. "$(dirname "${BASH_SOURCE[0]}")/packages.sh"

SYSROOT_PACKAGES=(libc6-dev libstdc++-12-dev libcairo2-dev libboost-dev libgtest-dev libgmock-dev
                  libsdl2-dev libchafa-dev libwebp-dev libfontconfig-dev libicu-dev
                  libglib2.0-dev libcsv-dev libgettextpo-dev libcli11-dev
                  nlohmann-json3-dev
                  fonts-dejavu-core fonts-droid-fallback fontconfig-config busybox-static v4l-utils)
AMD64_PACKAGES=(linux-image-amd64 libcairo2 busybox-static v4l-utils fonts-dejavu-core fonts-droid-fallback
                fontconfig-config)
ARMMP_PACKAGES=(linux-image-armmp)
CROSS_PACKAGES=(g++-arm-linux-gnueabihf qemu-user-static cmake ninja-build pkg-config)

cache_folder() {
  echo "${BOOTLUME_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/bootlume}"
}

# root_packages KIND: sets architecture and packages of the caller.
root_packages() {
  case $1 in
    sysroot) architecture=armhf packages=("${SYSROOT_PACKAGES[@]}") ;;
    armmp) architecture=armhf packages=("${ARMMP_PACKAGES[@]}") ;;
    amd64) architecture=amd64 packages=("${AMD64_PACKAGES[@]}") ;;
    *) echo "there is no tree '$1'; there are sysroot, armmp and amd64" >&2; return 1 ;;
  esac
}

# root_path KIND: where the tree lies, whether it exists or not.
root_path() {
  local architecture packages sum
  root_packages "$1" || return
  sum=$(echo "2 $architecture ${packages[*]}" | sha256sum)
  echo "$(cache_folder)/$1-${sum:0:12}"
}

# debian_uri: the archive that this machine installs from.
debian_uri() {
  # shellcheck disable=SC2016 # the format is apt-get's
  apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Origin: Debian' \
    'Codename: bookworm' 'Component: main' | head -n 1
}

unpack_root() {
  local target=$1 architecture=$2 list=$3 uri
  uri=$(debian_uri)
  rm -rf "$target"
  if [ -z "$uri" ]; then
    as_root apt-get -qq update
    uri=$(debian_uri)
  fi
  [ -n "$uri" ] || { echo "apt knows no Debian bookworm archive to take packages from" >&2; return 1; }
  mmdebstrap --quiet --architectures="$architecture" --variant=extract --include="$list" \
    bookworm "$target" "deb $uri bookworm main"
}

# trim_root ROOT: drops what nobody reads here; links to absolute places then point into the tree.
trim_root() {
  local root=$1 link
  find "$root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -srnf "$root$(readlink "$link")" "$link"
  done
  # Without its own /dev: the user-mode emulator would take the folder's plain files for devices.
  # What the graphics drivers bring is large, and only loaded at run time.
  rm -rf "$root"/usr/lib/*/dri "$root"/usr/lib/*/libLLVM*
  rm -rf "${root:?}/dev" "${root:?}/var" "$root/usr/share/doc" "$root/usr/share/man" "$root/usr/share/locale" \
         "$root/usr/share/info" "$root/usr/src"
}

# index_modules ROOT: which module needs which, where the tree has a kernel.
index_modules() {
  local folder
  for folder in "$1"/lib/modules/*/; do
    [ -d "$folder" ] || continue
    /sbin/depmod -b "$1" "$(basename "$folder")"
  done
}

# need_root KIND: makes the tree where it is missing, and prints its path. A second call needs no
# network.
need_root() {
  local kind=$1 architecture packages path work list
  root_packages "$kind" || return
  path=$(root_path "$kind")
  if [ ! -d "$path" ]; then
    need_packages mmdebstrap kmod >&2 || return
    mkdir -p "$(cache_folder)"
    work=$(mktemp -d "$path.XXXXXX") || return
    list=$(IFS=,; echo "${packages[*]}")
    echo "unpacking $kind ($architecture) into $path" >&2
    if ! retry unpack_root "$work/root" "$architecture" "$list" >&2; then
      rm -rf "$work"
      return 1
    fi
    trim_root "$work/root"
    index_modules "$work/root"
    chmod 755 "$work/root"
    # Another run may have been faster: its tree is as good.
    mv -T "$work/root" "$path" 2>/dev/null || [ -d "$path" ]
    rm -rf "$work"
  fi
  echo "$path"
}

# need_armhf: what a build for 32-bit ARM needs; tells it to cmake. A build folder that was configured
# against another sysroot is configured anew.
need_armhf() {
  local folder
  need_packages "${CROSS_PACKAGES[@]}" || return
  BOOTLUME_SYSROOT=$(need_root sysroot) || return
  export BOOTLUME_SYSROOT
  for folder in build/armhf build/package-armhf; do
    if [ -e "$folder/CMakeCache.txt" ] && ! grep -qxF "BOOTLUME_SYSROOT:PATH=$BOOTLUME_SYSROOT" "$folder/CMakeCache.txt"; then
      rm -rf "$folder/CMakeCache.txt" "$folder/CMakeFiles"
    fi
  done
}
