#!/usr/bin/env bash
# Runs documented commands in a checkout. One that shows a splash goes on until it is ended: that is
# done over its socket as soon as it answers.
#
#   until_shown.sh COMMANDS
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work
printf '%s\n' "$1" >"$work/commands"

# What runs is a session of its own with a terminal of its own; it ends with its first process.
script --quiet --return --command "stty rows 40 cols 80; bash -eu '$work/commands'" "$work/typescript" \
  </dev/null >/dev/null &
session=$!
while kill -0 "$session" 2>/dev/null; do
  for socket in "$work"/*/tmp/.bootlume "$work"/.bootlume-*/tmp/.bootlume /tmp/desk/tmp/.bootlume; do
    [ -S "$socket" ] || continue
    build/release/bin/bootlumectl --socket "$socket" quit --timeout 20 2>/dev/null || true
  done
  sleep 0.1
done
wait "$session" || { cat "$work/typescript"; exit 1; }
