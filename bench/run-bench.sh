#!/usr/bin/env bash
# Runs the benchmark suite of an already built pair of trees and writes the results tables.
# Called by `./zel bench [--quick] [--runs N]`; usable alone with ZEL_TREES set.
#
# The suite runs in a Wine prefix of its own (build/bench/wineprefix by default), where it
# registers the provider and the server of the measured trees: registration is machine-wide
# in a prefix, and the prefix's wineserver carries every cross-process call, so a shared
# prefix would let test runs and benchmarks disturb each other.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
TREES="${ZEL_TREES:-$ROOT/build}"
OUT="${ZEL_BENCH_OUT:-$ROOT/build/bench}"
BENCH_PREFIX="${ZEL_BENCH_PREFIX:-$OUT/wineprefix}"
STEP_TIMEOUT="${ZEL_BENCH_STEP_TIMEOUT:-1200}"  # seconds one measurement may take

QUICK=0
RUNS=5
ONLY=""   # --only zeldb: just figure 8 (zeldb against sqlite3), for a quick look
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) QUICK=1 ;;
    --runs) RUNS="$2"; shift ;;
    --only) ONLY="$2"; shift ;;
    *) echo "usage: ./zel bench [--quick] [--runs N] [--only zeldb]   (N >= 5)" >&2; exit 2 ;;
  esac
  shift
done
if [ -n "$ONLY" ] && [ "$ONLY" != zeldb ]; then echo "--only takes zeldb" >&2; exit 2; fi
if [ "$RUNS" -lt 5 ]; then echo "--runs must be at least 5" >&2; exit 2; fi

SIZES=(1000 10000 100000)
[ "$QUICK" -eq 1 ] || SIZES+=(1000000)
# Cross-process calls cost milliseconds on a loaded machine, so the row-by-row walk over the
# boundary (5a: seven calls a row) reads the first WALK_ROWS rows of each result per run;
# its rates are per row and per call, comparable across N.
WALK_ROWS=200
[ "$QUICK" -eq 1 ] || WALK_ROWS=2000
FLOOR_CALLS=500       # ConIsConnected calls per run of figure 6 (and 6b)
PAIRED_CALLS=200      # ConIsConnected calls after each run of 5a (6p)
# The in-process service walk (5c) executes the query with its document first, as every
# execution does; it runs at every N (at 100,000 rows a run now takes about a second).
SERVICE_MAX_N=1000000
CATALOG_TABLES=1000
WIDE_COLUMNS=255

W32="$TREES/win32/bin"
W64="$TREES/win64/bin"
PROGRAMS=("$W32/ZelBenchLocal.exe" "$W32/ZelBenchReport.exe" "$W32/ZelPmDb32.exe" "$W32/ZelLite.dll" "$W64/zeldb.exe")
[ -n "$ONLY" ] || PROGRAMS+=("$W64/ZelBenchRemote.exe")
for program in "${PROGRAMS[@]}"; do
  [ -f "$program" ] || { echo "[bench] missing $program: build the trees first" >&2; exit 1; }
done

export WINEPREFIX="$BENCH_PREFIX"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"

log() { printf '[bench] %s\n' "$*" >&2; }
winpath() { local p="$1"; echo "Z:${p//\//\\}"; }

mkdir -p "$OUT/data"
if [ ! -f "$BENCH_PREFIX/system.reg" ] || [ ! -d "$BENCH_PREFIX/drive_c/windows/syswow64" ]; then
  log "creating the benchmark Wine prefix in $BENCH_PREFIX"
  mkdir -p "$BENCH_PREFIX"
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w
fi
# Keep this prefix's wineserver up between the programs of the run.
wineserver -p60 </dev/null >/dev/null 2>&1 || true

START=$(date +%s)
RAW="$OUT/raw.csv"
CONTEXT="$OUT/context.txt"
rm -f "$RAW"

log "registering the provider and the server of $TREES"
wine "$W32/ZelBenchLocal.exe" register-provider
wine "$W32/ZelPmDb32.exe" /RegServer

# A record of a figure measured here in the script (a whole native process).
record8() { # figure title n note counter peak rows bytes seconds
  echo "$1,\"$2\",$3,ok,\"$4\",$5,0,$6,$7,0,$8,$9,," >> "$RAW"
}

# Appends a failure record when a measuring program ended without writing one (a crash or
# the step timeout), so the table shows the gap instead of hiding it.
measure() { # figure-label n program args...
  local label="$1" n="$2"; shift 2
  local before=0 code=0
  [ -f "$RAW" ] && before=$(wc -l < "$RAW")
  timeout "$STEP_TIMEOUT" wine "$@" || code=$?
  local after=0
  [ -f "$RAW" ] && after=$(wc -l < "$RAW")
  if [ "$after" -eq "$before" ]; then
    [ -f "$RAW" ] || echo "figure,title,n,status,note,memory_counter,memory_before,memory_peak,rows,calls,bytes,seconds,setup_seconds,cpu_seconds" > "$RAW"
    local why="the program ended with code $code without a result"
    [ "$code" -eq 124 ] && why="stopped after ${STEP_TIMEOUT} s"
    echo "$label,\"$label\",$n,failed,\"$why\",,0,0,0,0,0,,," >> "$RAW"
    log "figure $label at N=$n: $why"
  fi
}

for n in "${SIZES[@]}"; do
  db="$OUT/data/rows-$n.db"
  if [ ! -f "$db" ]; then
    log "generating $n rows"
    wine "$W32/ZelBenchLocal.exe" generate --db "$(winpath "$db")" --rows "$n"
  fi
done
catalog="$OUT/data/catalog-$CATALOG_TABLES-$WIDE_COLUMNS.db"
if [ -z "$ONLY" ] && [ ! -f "$catalog" ]; then
  log "generating the catalog ($CATALOG_TABLES tables, one of $WIDE_COLUMNS columns)"
  wine "$W32/ZelBenchLocal.exe" generate-catalog --db "$(winpath "$catalog")" --tables "$CATALOG_TABLES" \
    --columns "$WIDE_COLUMNS"
fi

{
  echo "Run: $(date -u '+%Y-%m-%d %H:%M UTC'), $([ "$QUICK" -eq 1 ] && echo 'quick (N up to 100,000)' || echo 'full (N up to 1,000,000)'), $RUNS measured runs per figure; in-process figures and 5b after one warm-up run up to N = 10,000 (none above), 5a, 6 and 7 without; 5a walks at most $WALK_ROWS rows per run, 5c runs up to N = $SERVICE_MAX_N"
  echo "Machine: $(nproc) cores ($(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')), $(wine --version), load average at start: $(cut -d' ' -f1-3 /proc/loadavg)"
  [ -n "$ONLY" ] || echo "Catalog: $(wine "$W32/ZelBenchLocal.exe" catalog-check --db "$(winpath "$catalog")" | tr -d '\r')"
  echo "Trees: $TREES (32-bit server and provider, 64-bit client); Wine prefix: $BENCH_PREFIX"
} > "$CONTEXT"

RAW_WIN="$(winpath "$RAW")"
for n in "${SIZES[@]}"; do
  [ -z "$ONLY" ] || break
  db="$(winpath "$OUT/data/rows-$n.db")"
  # A warm-up run matters where runs are short; at 100,000 rows and more it would only add time.
  warmups=1
  [ "$n" -ge 100000 ] && warmups=0
  common=(--db "$db" --rows "$n" --runs "$RUNS" --warmups "$warmups" --out "$RAW_WIN")
  measure 1 "$n" "$W32/ZelBenchLocal.exe" run --figure sqlite "${common[@]}"
  measure 2 "$n" "$W32/ZelBenchLocal.exe" run --figure oledb "${common[@]}"
  measure 3 "$n" "$W32/ZelBenchLocal.exe" run --figure command "${common[@]}"
  measure 4 "$n" "$W32/ZelBenchLocal.exe" run --figure xml "${common[@]}"
  if [ "$n" -le "$SERVICE_MAX_N" ]; then
    measure 5c "$n" "$W32/ZelBenchLocal.exe" run --figure service "${common[@]}"
  fi
  remote=(--db "$db" --n "$n" --runs "$RUNS" --out "$RAW_WIN")
  measure 5a "$n" "$W64/ZelBenchRemote.exe" run --figure fetch "${remote[@]}" --warmups 0 --walk-rows "$WALK_ROWS" \
    --paired-calls "$PAIRED_CALLS"
  measure 5b "$n" "$W64/ZelBenchRemote.exe" run --figure xml "${remote[@]}" --warmups "$warmups"
done

# The PostgreSQL series: the same rows in a throwaway PostgreSQL cluster, read in process through
# ZelOdbc (2p, 3p, 4p: figures 2, 3 and 4 on that copy, psqlODBC's "PostgreSQL Unicode" driver
# under Wine's odbc32 and unixODBC) beside PostgreSQL's own client writing the table as CSV (1p:
# `psql -c "\copy (SELECT * FROM BenchRows) TO STDOUT CSV"` to /dev/null, a whole native
# process, median of the runs). The cluster is stopped when the suite ends, however it ends.
PG_DIR="$OUT/pg"
PG_STARTED=0
pg_stop() {
  [ "$PG_STARTED" -eq 1 ] || return 0
  PG_STARTED=0
  "$ROOT/tests/support/pg-cluster.sh" stop "$PG_DIR" || log "stopping the PostgreSQL cluster in $PG_DIR failed"
}
trap pg_stop EXIT
trap 'exit 130' INT TERM
pg_skip() { # reason
  log "PostgreSQL figures (1p to 4p) skipped: $1"
  echo "PostgreSQL figures (1p to 4p) skipped: $1" >> "$CONTEXT"
}
if [ -n "$ONLY" ]; then
  :
elif [ ! -f "$W32/ZelOdbc.dll" ]; then
  pg_skip "$W32/ZelOdbc.dll is not built"
elif ! command -v sqlite3 >/dev/null; then
  pg_skip "no sqlite3 shell to export the rows with"
else
  code=0
  PG_STARTED=1
  "$ROOT/tests/support/pg-cluster.sh" start "$PG_DIR" 2> "$OUT/pg-start.log" || code=$?
  cat "$OUT/pg-start.log" >&2
  if [ "$code" -ne 0 ]; then
    PG_STARTED=0
    "$ROOT/tests/support/pg-cluster.sh" stop "$PG_DIR" >/dev/null 2>&1 || true
    pg_skip "no PostgreSQL cluster could start (tests/support/pg-cluster.sh start ended with code $code: $(grep -v '^$' "$OUT/pg-start.log" | tail -n 1 | tr -d '"'))"
  fi
fi
if [ "$PG_STARTED" -eq 1 ]; then
  # The server binaries pg-cluster.sh chose (ZEL_PG_BINDIR, else the newest installed).
  PG_BIN="${ZEL_PG_BINDIR:-$(find /usr/lib/postgresql -mindepth 2 -maxdepth 2 -name bin -type d 2>/dev/null | sort -t / -k 5 -V | tail -n 1)}"
  PG_PORT="$(cat "$PG_DIR/port")"
  # psql itself, not Debian's version-choosing wrapper in /usr/bin, so that 1p is the client alone.
  pg_psql() { PGHOST=127.0.0.1 PGPORT="$PG_PORT" PGUSER=postgres PGDATABASE=zeltest "$PG_BIN/psql" -X -q -v ON_ERROR_STOP=1 "$@"; }
  # BoolsAsChar=0: psqlODBC gives booleans as BIT (BOOL), not as text, so the columns have the
  # types of the SQLite table (I4, WSTR(50), R8, DATE, BOOL, WSTR(200)).
  PG_CONNECTION="Provider=ZelOdbc.OLEDB.1;$(cat "$PG_DIR/connection.txt")BoolsAsChar=0;${ZEL_BENCH_PG_OPTIONS:-}"
  echo "PostgreSQL series: $("$PG_BIN/postgres" --version) on 127.0.0.1 (throwaway cluster in $PG_DIR); ZelOdbc connection string \"$PG_CONNECTION\", 1p runs $PG_BIN/psql" >> "$CONTEXT"
  for n in "${SIZES[@]}"; do
    file="$OUT/data/rows-$n.db"
    log "loading $n rows into PostgreSQL"
    # The same rows: the SQLite file's values as CSV (Amount with all 17 digits, so that every
    # double arrives unchanged) into a table of the matching PostgreSQL types.
    loaded=""
    if pg_psql -c "DROP TABLE IF EXISTS BenchRows" \
         -c "CREATE TABLE BenchRows (Id integer PRIMARY KEY, Name varchar(50), Amount double precision, Created timestamp, Active boolean, Notes varchar(200))" &&
       sqlite3 -csv "$file" "SELECT Id, Name, printf('%.17g', Amount), Created, Active, Notes FROM BenchRows ORDER BY Id" |
         pg_psql -c "\copy BenchRows FROM STDIN CSV" &&
       pg_psql -c "VACUUM ANALYZE BenchRows"; then
      loaded="$(pg_psql -A -t -c "SELECT count(*) FROM BenchRows" || true)"
    fi
    if [ "$loaded" != "$n" ]; then
      for label in 1p 2p 3p 4p; do
        echo "$label,\"$label\",$n,failed,\"loading the rows into PostgreSQL failed (count: ${loaded:-none})\",,0,0,0,0,0,,," >> "$RAW"
      done
      log "PostgreSQL figures at N=$n: loading the rows failed"
      continue
    fi
    warmups=1
    [ "$n" -ge 100000 ] && warmups=0
    series=(--connection "$PG_CONNECTION" --series p --series-title "ZelOdbc on PostgreSQL" --rows "$n" --runs "$RUNS"
            --warmups "$warmups" --out "$RAW_WIN")
    measure 2p "$n" "$W32/ZelBenchLocal.exe" run --figure oledb "${series[@]}"
    measure 3p "$n" "$W32/ZelBenchLocal.exe" run --figure command "${series[@]}"
    measure 4p "$n" "$W32/ZelBenchLocal.exe" run --figure xml "${series[@]}"
    # 1p: first one run to a file to count what psql writes, then the timed runs to /dev/null.
    out_psql="$OUT/data/psql-$n.csv"
    query='\copy (SELECT * FROM BenchRows) TO STDOUT CSV'
    if pg_psql -c "$query" > "$out_psql"; then
      lines=$(wc -l < "$out_psql"); bytes=$(stat -c %s "$out_psql")
      times=""; peak=0
      for run in $(seq "$RUNS"); do
        t0=$(date +%s.%N)
        /usr/bin/time -f %M -o "$OUT/data/time.txt" env PGHOST=127.0.0.1 PGPORT="$PG_PORT" PGUSER=postgres \
          PGDATABASE=zeltest "$PG_BIN/psql" -X -q -c "$query" > /dev/null
        t1=$(date +%s.%N)
        times+="$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }');"
        kib=$(tail -1 "$OUT/data/time.txt"); [ $((kib * 1024)) -gt "$peak" ] && peak=$((kib * 1024))
      done
      record8 1p "psql \\copy (SELECT * FROM BenchRows) TO STDOUT CSV, whole process (native)" "$n" \
        "$lines rows written" "process peak RSS" "$peak" "$lines" "$bytes" "${times%;}"
    else
      echo "1p,\"1p\",$n,failed,\"psql could not copy the table out\",,0,0,0,0,0,,," >> "$RAW"
    fi
    rm -f "$out_psql"
  done
  pg_stop
fi

# Figure 8: the whole command-line client against Debian's native sqlite3 shell, each a
# process of its own writing the table as CSV to a file: `zeldb query FILE "SELECT *
# FROM BenchRows" --csv` (a 64-bit Wine process that starts the 32-bit server) against
# `sqlite3 -csv -header FILE "SELECT * FROM BenchRows"`. Peak memory is each process's
# Linux peak resident set (VmHWM, Wine's own libraries included): sqlite3's from its exit
# status, zeldb's and the server's sampled from /proc while they run (Wine starts zeldb
# through start.exe, so it is not a child that time(1) could measure).
pids_running() { # fixed text: the processes whose command line contains it
  grep -lsF -- "$1" /proc/[0-9]*/cmdline 2>/dev/null | cut -d/ -f3 || true
}
sample_peaks() { # stopfile outfile text...: per text, the largest VmHWM (bytes) seen until stopfile exists
  local stop="$1" out="$2" pid kib i; shift 2
  local -a texts=("$@") peaks=()
  for i in "${!texts[@]}"; do peaks[i]=0; done
  while [ ! -f "$stop" ]; do
    for i in "${!texts[@]}"; do
      for pid in $(pids_running "${texts[i]}"); do
        kib=$(awk '/^VmHWM:/ {print $2}' "/proc/$pid/status" 2>/dev/null || true)
        [ -n "$kib" ] && [ $((kib * 1024)) -gt "${peaks[i]}" ] && peaks[i]=$((kib * 1024))
      done
    done
    sleep 0.1
  done
  echo "${peaks[*]}" > "$out"
}
ZELDB_WIN="$(winpath "$W64/zeldb.exe")"
SERVER_WIN="$(winpath "$W32/ZelPmDb32.exe")"
for n in "${SIZES[@]}"; do
  [ "$n" -ge 10000 ] || continue
  file="$OUT/data/rows-$n.db"
  out_sqlite="$OUT/data/sqlite3-$n.csv"
  out_zeldb="$OUT/data/zeldb-$n.csv"
  times=""; peak=0
  for run in $(seq "$RUNS"); do
    t0=$(date +%s.%N)
    /usr/bin/time -f %M -o "$OUT/data/time.txt" sqlite3 -csv -header "$file" "SELECT * FROM BenchRows" > "$out_sqlite"
    t1=$(date +%s.%N)
    times+="$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }');"
    kib=$(tail -1 "$OUT/data/time.txt"); [ $((kib * 1024)) -gt "$peak" ] && peak=$((kib * 1024))
  done
  lines=$(wc -l < "$out_sqlite")
  record8 8s "sqlite3 -csv, whole process (native)" "$n" "$((lines - 1)) rows written" "process peak RSS" "$peak" \
    "$n" "$(stat -c %s "$out_sqlite")" "${times%;}"
  times=""; peak=0; server_peak=0; failed=""
  for run in $(seq "$RUNS"); do
    stop="$OUT/data/sampler.stop"; rm -f "$stop"
    sample_peaks "$stop" "$OUT/data/peaks.txt" "$ZELDB_WIN" "$SERVER_WIN" &
    sampler=$!
    t0=$(date +%s.%N)
    code=0
    timeout "$STEP_TIMEOUT" wine "$W64/zeldb.exe" query "$(winpath "$file")" "SELECT * FROM BenchRows" --csv \
      > "$out_zeldb" || code=$?
    t1=$(date +%s.%N)
    # The server ends a moment after its last client; the sampler watches until then.
    for _ in $(seq 50); do [ -n "$(pids_running "$SERVER_WIN")" ] || break; sleep 0.1; done
    touch "$stop"; wait "$sampler" || true
    if [ "$code" -ne 0 ]; then failed="zeldb ended with code $code"; break; fi
    times+="$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }');"
    read -r zp sp < "$OUT/data/peaks.txt" || true
    [ "${zp:-0}" -gt "$peak" ] && peak=$zp
    [ "${sp:-0}" -gt "$server_peak" ] && server_peak=$sp
  done
  if [ -n "$failed" ]; then
    echo "8,\"zeldb query --csv, whole process\",$n,failed,\"$failed\",,0,0,0,0,0,,," >> "$RAW"
    log "figure 8 at N=$n: $failed"
  else
    lines=$(wc -l < "$out_zeldb")
    record8 8 "zeldb query --csv, whole process" "$n" \
      "$((lines - 1)) rows written; server peak RSS $((server_peak / 1048576)) MiB" "zeldb peak RSS" "$peak" "$n" \
      "$(stat -c %s "$out_zeldb")" "${times%;}"
  fi
  rm -f "$out_sqlite" "$out_zeldb"
done

if [ -z "$ONLY" ]; then
db="$(winpath "$OUT/data/rows-1000.db")"
measure 6 "$FLOOR_CALLS" "$W64/ZelBenchRemote.exe" run --figure call-floor --db "$db" --n "$FLOOR_CALLS" \
  --runs "$RUNS" --warmups 0 --out "$RAW_WIN"
measure 6b "$FLOOR_CALLS" "$W64/ZelBenchRemote.exe" run --figure call-floor-closed --db "$db" --n "$FLOOR_CALLS" \
  --runs "$RUNS" --warmups 0 --out "$RAW_WIN"
measure 7a "$CATALOG_TABLES" "$W64/ZelBenchRemote.exe" run --figure tables --db "$(winpath "$catalog")" \
  --n "$CATALOG_TABLES" --runs "$RUNS" --warmups 0 --out "$RAW_WIN"
measure 7b "$WIDE_COLUMNS" "$W64/ZelBenchRemote.exe" run --figure columns --db "$(winpath "$catalog")" \
  --n "$WIDE_COLUMNS" --runs "$RUNS" --warmups 0 --out "$RAW_WIN"
fi

echo "Load average at end: $(cut -d' ' -f1-3 /proc/loadavg); the suite took $(( $(date +%s) - START )) s" >> "$CONTEXT"
wine "$W32/ZelBenchReport.exe" --raw "$RAW_WIN" --md "$(winpath "$OUT/results.md")" \
  --csv "$(winpath "$OUT/results.csv")" --context "$(winpath "$CONTEXT")" | tr -d '\r'
log "wrote $OUT/results.md and $OUT/results.csv"
