# Sourced by the scripts that a person types: installs what is missing, and only that.
# shellcheck shell=bash

# as_root COMMAND...: runs it as root, through sudo where that is needed.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "This needs root rights, and there is no sudo: $*" >&2
    return 1
  fi
}

# retry COMMAND...: up to five tries with growing pauses; says what it waits for.
retry() {
  local try
  for try in 1 2 3 4 5; do
    "$@" && return 0
    [ "$try" -lt 5 ] || break
    echo "waiting $((try * 5)) s, then once more: $*" >&2
    sleep $((try * 5))
  done
  echo "failed five times: $*" >&2
  return 1
}

# need_packages NAME...: installs those that are missing; silent and offline where none is.
need_packages() {
  local missing=() name
  for name in "$@"; do
    # shellcheck disable=SC2016 # the format is dpkg-query's
    dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null | grep -qx installed || missing+=("$name")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "installing: ${missing[*]}" >&2
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0
             -o DPkg::Lock::Timeout=300)
  if ! as_root "${apt[@]}" install -y --no-install-recommends "${missing[@]}" >/dev/null 2>&1; then
    retry quietly as_root "${apt[@]}" update
    retry quietly as_root "${apt[@]}" install -y --no-install-recommends "${missing[@]}"
  fi
}

# quietly COMMAND...: what it says is shown where it fails.
quietly() {
  local said
  said=$("$@" 2>&1) || { printf '%s\n' "$said" >&2; return 1; }
}

# What a build of the program and its tests needs.
# shellcheck disable=SC2034 # used by the scripts that source this file
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libcairo2-dev libboost-dev libgtest-dev
                libgmock-dev fontconfig fonts-dejavu-core fonts-droid-fallback fonts-liberation)

# What the tests need besides.
# shellcheck disable=SC2034
TEST_PACKAGES=(python3 python3-pytest python3-pytest-xdist python3-cairo python3-pil python3-numpy valgrind strace
               xvfb xdotool tmux fonts-freefont-ttf)

# What the preview and the client need.
# shellcheck disable=SC2034
TOOLS_PACKAGES=(libsdl2-dev libchafa-dev libwebp-dev nlohmann-json3-dev libcli11-dev
                libfontconfig-dev libicu-dev libglib2.0-dev libcsv-dev libgettextpo-dev)

# What the packages and their manuals need.
# shellcheck disable=SC2034
PACKAGE_PACKAGES=(scdoc lowdown dpkg-dev lintian file mmdebstrap systemd man-db)

# What the builds of image builders need besides, and the checks of their trees.
# shellcheck disable=SC2034
INTEGRATION_PACKAGES=(clang-14 make python3-kconfiglib scdoc lowdown qemu-system-x86 musl-dev libc++-14-dev)

# What the tests of the packages need besides: machines to install and to boot them on.
# shellcheck disable=SC2034
PACKAGE_TEST_PACKAGES=(qemu-user-static arch-test qemu-system-x86 kmod)
