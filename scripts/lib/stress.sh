# Sourced by scripts/test: keeps the machine busy while tests run.
# shellcheck shell=bash

STRESS_JOBS=()

# begin_stress: twice as many busy loops as there are processors, and a writer that fills the disk's queue.
begin_stress() {
  local count
  mkdir -p build
  for ((count = 2 * $(nproc); count > 0; --count)); do
    while :; do :; done &
    STRESS_JOBS+=($!)
  done
  while dd if=/dev/zero of=build/stress bs=1M count=256 conv=fsync 2>/dev/null; do :; done &
  STRESS_JOBS+=($!)
  trap end_stress EXIT
}

# The jobs' status is that of a kill, and must not become the script's.
end_stress() {
  kill "${STRESS_JOBS[@]}" 2>/dev/null || true
  wait "${STRESS_JOBS[@]}" 2>/dev/null || true
  rm -f build/stress
}
