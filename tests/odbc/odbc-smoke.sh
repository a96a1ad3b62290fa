#!/usr/bin/env bash
# unixODBC's own isql on a DSN of the test cluster's DSN file, with nothing of ours in between:
# a table is made, filled, read back and dropped, and every value read must be the one written.
#
#   odbc-smoke.sh CLUSTER-DIR DSN     (DSN: ZelPg or ZelSqlite of CLUSTER-DIR/odbc.ini)
#
# isql's exit code says nothing about failed statements (0 after an error), so the output is
# what is checked: each expected line must be there, and no error line.
set -euo pipefail

[ $# -eq 2 ] || { echo "usage: odbc-smoke.sh CLUSTER-DIR DSN"; exit 2; }
dir="$1"
dsn="$2"
fail() { echo "FAILED: $*"; exit 1; }

command -v isql >/dev/null || fail "isql is missing (package unixodbc; ./zel setup installs it)"
[ -f "$dir/odbc.ini" ] || fail "no DSN file $dir/odbc.ini (the fixture odbc.PgClusterStart writes it)"

table="zel_isql_smoke_$(printf '%s' "$dsn" | tr '[:upper:]' '[:lower:]')"
out="$(mktemp)"
trap 'rm -f "$out"' EXIT

# -b: statements from stdin, one a line; -d'|': rows as fields joined by '|', no frame.
status=0
ODBCINI="$dir/odbc.ini" isql -b -v -d'|' "$dsn" >"$out" 2>&1 <<SQL || status=$?
DROP TABLE IF EXISTS $table
CREATE TABLE $table (id INTEGER, name VARCHAR(40), price DOUBLE PRECISION)
INSERT INTO $table (id, name, price) VALUES (1, 'alpha', 2.5), (2, 'beta', -0.125), (3, NULL, NULL)
SELECT id, name, price FROM $table ORDER BY id
SELECT COUNT(*), SUM(price) FROM $table
DROP TABLE $table
SQL
echo "isql $dsn (exit code $status):"
cat "$out"
[ "$status" -eq 0 ] || fail "isql ended with exit code $status"
if grep -q 'ERROR' "$out"; then
  fail "isql reported an error"
fi
missing=0
for line in '1|alpha|2.5' '2|beta|-0.125' '3||' '3|2.375'; do
  grep -qFx -- "$line" "$out" || { echo "missing line: $line"; missing=1; }
done
[ "$missing" -eq 0 ] || fail "rows read back through $dsn differ from the rows written"
echo "ok: $dsn"
