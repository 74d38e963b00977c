#!/usr/bin/env bash
# Runs documented commands in a checkout. One that shows a splash goes on until it is ended: the
# preview by its key, once it has said where the picture lies, and a splash of its own over its socket.
# Commands for the splash of scripts/run find one, and must end it.
#
#   until_shown.sh COMMANDS
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work
printf '%s\n' "$1" >"$work/commands"

in_terminal() { script --quiet --return --command "stty rows 40 cols 80; $1" "$2"; }

shown=
if [[ $1 == *'--root build/desk '* ]]; then
  rm -f build/desk/tmp/.bootlume
  in_terminal 'exec build/release/bin/bootlume-preview --root build/desk' "$work/shown" </dev/null >/dev/null &
  shown=$!
  until [ -S build/desk/tmp/.bootlume ] && kill -0 "$shown"; do sleep 0.1; done
fi

# What runs is a session of its own with a terminal of its own; it ends with its first process.
mkfifo "$work/keys"
exec 3<>"$work/keys"
in_terminal "bash -eu '$work/commands'" "$work/typescript" <"$work/keys" >/dev/null &
session=$!
while kill -0 "$session" 2>/dev/null; do
  if grep -aq 'picture of the page' "$work/typescript" 2>/dev/null; then
    printf q >&3
  fi
  if [ -S /tmp/desk/tmp/.bootlume ]; then
    build/release/bin/bootlumectl --root /tmp/desk quit --timeout 20 2>/dev/null || true
  fi
  sleep 0.1
done
wait "$session" || { cat "$work/typescript"; exit 1; }
[ -z "$shown" ] || wait "$shown" || { cat "$work/shown"; exit 1; }
