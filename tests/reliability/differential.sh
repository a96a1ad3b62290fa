#!/bin/sh
# The differential test: random tables and SELECTs run through the server and through
# Debian's own sqlite3 shell on the same file; every value must agree.
#
#   differential.sh WINE-RUN CLIENT WORK-DIR SEED QUERIES [SEED QUERIES...]
#
# For each seed: the client makes the tables through the server and writes the shell's
# script; the shell runs the queries on the file (Linux side, no Wine); the client runs them
# through the server and compares.
set -eu

run="$1"
client="$2"
work="$3"
shift 3

command -v sqlite3 >/dev/null || { echo "sqlite3 is not installed (./zel setup installs it)"; exit 1; }

status=0
while [ $# -ge 2 ]; do
  seed="$1"
  queries="$2"
  shift 2
  dir="$work/seed-$seed"
  rm -rf "$dir"
  mkdir -p "$dir"
  : >"$dir/diff.db"
  windir="Z:$(printf '%s' "$dir" | sed 's|/|\\|g')"
  echo "seed $seed: $queries queries"
  "$run" "$client" setup "$windir" "$seed" "$queries" || { status=1; continue; }
  sqlite3 -batch -bail "$dir/diff.db" <"$dir/shell.sql" >"$dir/shell.txt" || { echo "sqlite3 failed"; status=1; continue; }
  "$run" "$client" compare "$windir" "$seed" "$queries" || status=1
done
[ "$status" -eq 0 ] && rm -rf "$work"
exit "$status"
