# Starts the splash before the init system. Sourced by bootlume-init and by the last step of the initramfs.
# shellcheck shell=sh
#
# early_splash starts it in the root file system $root, which is empty for the one that this shell runs in.
# It returns when the splash serves its socket, or when it is clear that there will be none: after about
# five seconds at most, and sooner where anything is missing. Without a splash nothing is left behind.
# What it says of failures goes to standard error, as does what the splash writes.

early_folder=/run/bootlume
early_device=imx-ipuv3-ovl.5
early_link=/dev/v4l/by-path/platform-$early_device-video-index0
early_looks=200 # of 20 ms and a bit, for everything
early_node_looks=40 # for the node of a driver that has been loaded

# early_words TEXT: sets $words to the words of a text, quoted for eval. They are what the service manager
# makes of $BOOTLUME_OPTIONS: blanks separate words, quotes keep blanks, and a backslash keeps any
# character as it is.
early_words() {
  words='' word='' begun='' quote='' text=$1
  while [ -n "$text" ]; do
    rest=${text#?}
    char=${text%"$rest"}
    case $quote$char in
      \\ | ?\\)
        text=$rest rest=${rest#?}
        char=${text%"$rest"} begun=1 ;;
      \' | \") quote=$char char='' begun=1 ;;
      \'\' | \"\") quote='' char='' ;;
      ' ' | '	')
        [ -z "$begun" ] || words="$words '$word'"
        char='' word='' begun='' ;;
      *) begun=1 ;;
    esac
    [ "$char" != \' ] || char="'\\''"
    word=$word$char text=$rest
  done
  [ -z "$begun" ] || words="$words '$word'"
}

# early_settings FILE: exports the settings in it. It is read and not run: what is no setting is passed over.
early_settings() {
  [ -r "$1" ] || return 0
  while IFS= read -r line || [ -n "$line" ]; do
    value=${line#*=}
    case $value in
      \'*\' | \"*\") value=${value#?} value=${value%?} ;;
    esac
    case $line in
      BOOTLUME_OPTIONS=* | BOOTLUME_DRIVER=* | BOOTLUME_NODE=* | SPLASH_TIMEOUT=* | SPLASH_TIMEOUT_HARD=* | \
        VRX_REBOOT_COMMAND=* | REBOOT_COMMAND=*) export "${line%%=*}=$value" ;;
    esac
  done <"$1"
}

# early_node: the overlay's node, in $node. Without a setting it is found as udev finds it.
early_node() {
  node=${BOOTLUME_NODE:-}
  if [ -n "$node" ]; then
    [ -c "$node" ]
    return
  fi
  for video in /sys/class/video4linux/video*; do
    # shellcheck disable=SC3013 # every shell that could run this has it
    if [ "$video/device" -ef "/sys/bus/platform/devices/$early_device" ] && read -r index <"$video/index" &&
      [ "$index" = 0 ]; then
      node=/dev/${video##*/}
      return 0
    fi
  done
  return 1
}

# early_display: loads the driver and makes the link by which the splash opens its device; waits for the
# node of a driver that is built in.
early_display() {
  for driver in ${BOOTLUME_DRIVER:-}; do
    modprobe -q "$driver" || return
  done
  [ ! -e "$early_link" ] || return 0
  looks=0
  until early_node; do
    [ "$looks" -lt "$early_node_looks" ] && sleep 0.02 || return
    looks=$((looks + 1))
  done
  mkdir -p "${early_link%/*}" && ln -sf "../../${node##*/}" "$early_link"
}

# shellcheck disable=SC2120 # the arguments are set by what is evaluated
# early_start: starts the splash; its process is in the file "pid" then.
early_start() {
  early_settings "${root?}/etc/default/bootlume"
  early_display || return
  early_words "${BOOTLUME_OPTIONS:-}"
  eval "set -- $words"
  cd / || return
  export FONTCONFIG_SYSROOT=/usr/share/bootlume/fontconfig
  umask 0177
  ${root:+chroot "$root"} /usr/sbin/bootlume "$@" >&2 &
  umask 0022
  echo $! >"$early_folder/pid"
}

# early_alive FILE: whether the process in the file is there.
early_alive() {
  { read -r pid <"$1" && [ "$pid" -gt 1 ] && kill -0 "$pid"; } 2>/dev/null
}

# early_wait: until the socket is there, or there is nobody left who could make it.
early_wait() {
  looks=0
  until [ -S "$early_folder/.bootlume" ]; do
    early_alive "$early_folder/starter" || early_alive "$early_folder/pid" || return
    [ "$looks" -lt "$early_looks" ] && sleep 0.02 || return
    looks=$((looks + 1))
  done
  early_alive "$early_folder/pid"
}

# early_end: ends what has no socket to be ended by.
early_end() {
  for file in "$early_folder/starter" "$early_folder/pid"; do
    ! early_alive "$file" || kill -KILL "$pid"
  done
}

# early_prepare: a folder for the socket below /run, which goes along to the root file system and is never
# emptied; it lies over /tmp until the splash has bound its socket there.
early_prepare() {
  mkdir -p "$early_folder" && echo 0 >"$early_folder/pid" && mount -o bind "$early_folder" "$root/tmp"
}

early_splash() {
  served=
  if early_alive "$early_folder/pid"; then
    return
  fi
  if early_prepare; then
    # shellcheck disable=SC2119
    early_start &
    echo $! >"$early_folder/starter"
    early_wait && served=1
    [ -n "$served" ] || early_end
    umount -l "$root/tmp"
    rm -f "$early_folder/starter"
  fi
  [ -n "$served" ] || rm -rf "$early_folder"
}
