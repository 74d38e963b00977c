# Sourced by the scripts that build: one way to configure and build a preset.
# shellcheck shell=bash

# build_preset PRESET [TARGET...]: configures where needed and builds the targets, or all; the log is shown
# when something fails.
build_preset() {
  local preset=$1 log
  shift
  mkdir -p build
  log=build/$preset.log
  echo "building $preset" >&2
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "the build of $preset failed; its log is $log" >&2
    return 1
  fi
}
