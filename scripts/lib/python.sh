# Sourced by the scripts that run Python: where the project's packages lie, and how tests are run.
# shellcheck shell=bash
export PYTHONPATH=$PWD/tools PYTHONDONTWRITEBYTECODE=1

# python_tests NAME WORDS...: pytest over the words, a few tests at a time. What fails is tried a second
# time, alone: the tests wait for real programs, and a machine that is busy for a moment proves nothing.
# What passes only then is named. NAME keeps the runs of different builds apart. Tests of one group share
# what is dear to make, and run one after the other.
python_tests() {
  local cache=$PWD/build/pytest/$1
  shift
  local words=(/usr/bin/python3 -m pytest -q -p cacheprovider -o "cache_dir=$cache")
  rm -rf "$cache"
  "${words[@]}" -n 3 --dist loadgroup "$@" && return 0
  # Run a few at a time, a test bears its group's name behind its own.
  sed -i 's/@[a-z]*": true/": true/' "$cache/v/cache/lastfailed" 2>/dev/null
  echo "trying once more what failed:"
  sed -n 's/^ *"\(.*\)": true,\{0,1\}$/  \1/p' "$cache/v/cache/lastfailed" 2>/dev/null
  "${words[@]}" --last-failed --last-failed-no-failures none "$@" &&
    echo "passed at the second try"
}
