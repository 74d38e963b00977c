# Sourced by scripts/test: runs one stage after the other, goes on after a failure, and sums up.
# shellcheck shell=bash
# shellcheck source=scripts/lib/python.sh
. scripts/lib/python.sh
# shellcheck source=scripts/lib/roots.sh
. scripts/lib/roots.sh

STAGES_PASSED=()
STAGES_FAILED=()
STAGE_ENDS=()

# stage NAME COMMAND...: nothing to read on standard input; what it said last is kept if it fails.
stage() {
  local name=$1 begin=$SECONDS log
  shift
  log=$(mktemp)
  printf '\n== %s\n' "$name"
  if "$@" </dev/null > >(tee "$log") 2>&1; then
    STAGES_PASSED+=("$name ($((SECONDS - begin)) s)")
  else
    STAGES_FAILED+=("$name ($((SECONDS - begin)) s)")
  fi
  # Until its last lines are written, or a while: a process that it left behind may hold the pipe.
  timeout 10 tail --pid=$! -s 0.1 -f /dev/null || true
  [ ${#STAGES_FAILED[@]} -eq ${#STAGE_ENDS[@]} ] || STAGE_ENDS+=("$(tail -n 12 "$log")")
  rm "$log"
}

# unit_tests PRESET
unit_tests() {
  # Only a build with sanitizers looks at these.
  LSAN_OPTIONS="suppressions=$PWD/cmake/leaks.supp:print_suppressions=0" \
  TSAN_OPTIONS="suppressions=$PWD/cmake/races.supp" \
  ctest --test-dir "build/$1" --output-on-failure -j 6 --timeout 300
}

# system_tests PRESET
system_tests() {
  python_tests system-tests --build-dir "build/$1"
}

tool_tests() {
  local folders=()
  mapfile -t folders < <(find tools -path '*/tests/test_*.py' -printf '%h\n' | sort -u)
  python_tests "${folders[@]}"
}

# begin_roots: starts to make, beside other stages, what the packages are built against, installed on and
# booted with. Emulated package management takes minutes; what has been made before takes none.
ROOT_LOGS=
declare -A ROOT_JOBS=()
begin_roots() {
  [ -z "$ROOT_LOGS" ] || return 0
  need_packages "${PACKAGE_PACKAGES[@]}" "${PACKAGE_TEST_PACKAGES[@]}" "${CROSS_PACKAGES[@]}"
  ROOT_LOGS=$(mktemp -d)
  local name
  for name in sysroot amd64; do
    (renice -n 15 "$BASHPID" >/dev/null; need_root "$name") >"$ROOT_LOGS/$name" 2>&1 &
    ROOT_JOBS[$name]=$!
  done
  for name in amd64 armhf; do
    nice -n 15 packaging/tests/clean_root.sh "$name" >"$ROOT_LOGS/clean-$name" 2>&1 &
    ROOT_JOBS[clean-$name]=$!
  done
}

# await_root NAME: until it is made; says what went wrong where it cannot be.
await_root() {
  wait "${ROOT_JOBS[$1]}" || { cat "$ROOT_LOGS/$1" >&2; return 1; }
}

package_tests() {
  begin_roots && await_root sysroot && scripts/package || return
  await_root amd64 && await_root clean-amd64 && await_root clean-armhf || return
  rm -rf "$ROOT_LOGS"
  python_tests packaging/tests
}

# One after the other: each build takes all processors.
integration_tests() {
  need_packages "${INTEGRATION_PACKAGES[@]}" "${CROSS_PACKAGES[@]}" || return
  /usr/bin/python3 -m pytest -q integration/tests
}

report_stages() {
  local line i
  for i in "${!STAGES_FAILED[@]}"; do
    printf '\n== how %s ended\n%s\n' "${STAGES_FAILED[i]}" "${STAGE_ENDS[i]}"
  done
  printf '\n== summary\n'
  for line in "${STAGES_PASSED[@]}"; do echo "passed   $line"; done
  for line in "${STAGES_FAILED[@]}"; do echo "FAILED   $line"; done
  printf '%d passed, %d failed\n' "${#STAGES_PASSED[@]}" "${#STAGES_FAILED[@]}"
  [ ${#STAGES_FAILED[@]} -eq 0 ]
}
