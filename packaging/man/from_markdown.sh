#!/bin/sh
# Makes a manual of a Markdown text: its first line, the heading, becomes the manual's summary.
#
#   from_markdown.sh NAME SECTION VOLUME <TEXT >MANUAL
#
# Needs lowdown. The manual bears the date in the environment's MANUAL_DATE.
set -eu
read -r heading
summary=$(printf '%s\n' "${heading#\# }" | sed 's/./\l&/')
# Commands are indented and keep their straight quotes, tables are followed by a blank line, and no word
# is cut.
lowdown -s -tman --out-no-smarty -M title="$1" -M section="$2" -M source=bootlume -M volume="$3" \
  -M date="$MANUAL_DATE" -M shiftheadinglevelby=-1 |
  sed -e "/^\\.TH/a .SH NAME\\n$1 \\\\- $summary\\n.ad l\\n.nr HY 0\\n.SH DESCRIPTION" \
    -e "/^\\.EX\$/,/^\\.EE\$/s/'/\\\\(aq/g" \
    -e 's/^\.EX$/.RS 4\n.EX/; s/^\.EE$/.EE\n.RE/; s/^\.TE$/.TE\n.sp/'
