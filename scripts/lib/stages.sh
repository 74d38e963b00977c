# Sourced by scripts/test: runs one stage after the other, goes on after a failure, and sums up.
# shellcheck shell=bash
# shellcheck source=scripts/lib/pytest.sh
. scripts/lib/pytest.sh
# shellcheck source=scripts/lib/roots.sh
. scripts/lib/roots.sh

STAGES_PASSED=()
STAGES_FAILED=()
STAGES_SKIPPED=()

# stage NAME COMMAND...
stage() {
  local name=$1 begin=$SECONDS
  shift
  printf '\n== %s\n' "$name"
  if "$@"; then
    STAGES_PASSED+=("$name ($((SECONDS - begin)) s)")
  else
    STAGES_FAILED+=("$name ($((SECONDS - begin)) s)")
  fi
}

# stage_if FILE NAME COMMAND...: a stage whose file is not there is counted as skipped.
stage_if() {
  local file=$1 name=$2
  shift
  if [ -e "$file" ]; then
    stage "$@"
  else
    STAGES_SKIPPED+=("$name")
  fi
}

# unit_tests PRESET
unit_tests() {
  # Only a build with sanitizers looks at these.
  LSAN_OPTIONS="suppressions=$PWD/cmake/leaks.supp:print_suppressions=0" \
  TSAN_OPTIONS="suppressions=$PWD/cmake/races.supp" \
  ctest --test-dir "build/$1" --output-on-failure -j "$(nproc)" --timeout 300 --repeat until-pass:2
}

# system_tests PRESET
system_tests() {
  python_tests "$1" system-tests --build-dir "build/$1"
}

tool_tests() {
  local folders=()
  mapfile -t folders < <(find tools -path '*/tests/test_*.py' -printf '%h\n' | sort -u)
  [ ${#folders[@]} -gt 0 ] || return 0
  python_tests tools "${folders[@]}"
}

package_tests() {
  local folder made=() root status=0
  need_packages "${PACKAGE_PACKAGES[@]}" "${PACKAGE_TEST_PACKAGES[@]}" "${CROSS_PACKAGES[@]}"
  # The machines to install and boot them on are made beside the packages.
  folder=$(mktemp -d)
  packaging/tests/clean_root.sh amd64 >"$folder/amd64" 2>&1 & made+=($!)
  packaging/tests/clean_root.sh armhf >"$folder/armhf" 2>&1 & made+=($!)
  need_root amd64 >"$folder/kernel" 2>&1 & made+=($!)
  scripts/package || status=1
  for root in "${made[@]}"; do
    wait "$root" || status=1
  done
  [ "$status" -eq 0 ] || cat "$folder"/*
  rm -rf "$folder"
  [ "$status" -eq 0 ] && python_tests packages packaging/tests
}

report_stages() {
  local line
  printf '\n== summary\n'
  for line in "${STAGES_PASSED[@]}"; do echo "passed   $line"; done
  for line in "${STAGES_SKIPPED[@]}"; do echo "skipped  $line"; done
  for line in "${STAGES_FAILED[@]}"; do echo "FAILED   $line"; done
  printf '%d passed, %d failed, %d skipped\n' \
    "${#STAGES_PASSED[@]}" "${#STAGES_FAILED[@]}" "${#STAGES_SKIPPED[@]}"
  [ ${#STAGES_FAILED[@]} -eq 0 ]
}
