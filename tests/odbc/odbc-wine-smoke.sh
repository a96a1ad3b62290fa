#!/usr/bin/env bash
# A 32-bit Windows program under Wine (ZelOdbcProbe.exe) through Wine's odbc32, the machine's
# i386 unixODBC and a Linux driver's i386 build; nothing of ours in between.
#
#   odbc-wine-smoke.sh WINE-RUN PROBE CLUSTER-DIR connection-string
#       the connection string of CLUSTER-DIR/connection.txt (PostgreSQL Unicode driver)
#   odbc-wine-smoke.sh WINE-RUN PROBE CLUSTER-DIR dsn NAME
#       "DSN=NAME;" with ODBCINI=CLUSTER-DIR/odbc.ini in the environment wine starts with
#
# The probe makes a table, fills it, reads it back with SQLGetData as SLONG, WCHAR and DOUBLE
# and drops it; each expected line of its output must be there.
set -euo pipefail

fail() { echo "FAILED: $*"; exit 1; }
[ $# -ge 4 ] || { echo "usage: odbc-wine-smoke.sh WINE-RUN PROBE CLUSTER-DIR connection-string|dsn NAME"; exit 2; }
run="$1"
probe="$2"
dir="$3"
mode="$4"

[ -x "$probe" ] || [ -f "$probe" ] || fail "no probe program $probe"
[ -f "$dir/connection.txt" ] || fail "no $dir/connection.txt (the fixture odbc.PgClusterStart writes it)"

case "$mode" in
  connection-string)
    connection="$(cat "$dir/connection.txt")"
    table=zel_probe_connection_string
    dbms=PostgreSQL
    ;;
  dsn)
    [ $# -eq 5 ] || fail "dsn needs a DSN name"
    connection="DSN=$5;"
    table="zel_probe_dsn_$(printf '%s' "$5" | tr '[:upper:]' '[:lower:]')"
    export ODBCINI="$dir/odbc.ini"
    case "$5" in
      ZelSqlite) dbms=SQLite ;;
      *) dbms=PostgreSQL ;;
    esac
    ;;
  *) fail "unknown mode $mode" ;;
esac

out="$(mktemp)"
trap 'rm -f "$out"' EXIT
echo "connection string: $connection"
status=0
"$run" "$probe" "$connection" "$table" >"$out" 2>&1 || status=$?
# The C runtime writes text mode: CR LF.
tr -d '\r' <"$out" >"$out.lf" && mv "$out.lf" "$out"
cat "$out"
[ "$status" -eq 0 ] || fail "the probe ended with exit code $status"

missing=0
while IFS= read -r line; do
  grep -qFx -- "$line" "$out" || { echo "missing line: $line"; missing=1; }
done <<LINES
row: id=1 name=[alpha] chars=5 price=2.5000
row: id=2 name=[Größe €] chars=7 price=-0.1250
row: id=3 name=NULL price=NULL
row: id=40000 name=[last] chars=4 price=1234567.8750
rows: 4
done
LINES
grep -q "^connected: DBMS $dbms " "$out" || { echo "missing line: connected: DBMS $dbms ..."; missing=1; }
[ "$missing" -eq 0 ] || fail "the rows read back under Wine differ from the rows written"
echo "ok: $mode${5:+ $5}"
