#!/usr/bin/env bash
# Samples one benchmark figure with `perf record -a -g` across the whole machine (so the server
# and the wineserver are seen too) and prints a flat profile per process with the callers of
# the hottest functions, named from the PE modules' own symbols (bench/perf-profile.py). Run after `./zel bench`, which made the
# benchmark prefix, registered the server and generated the data.
#
#   bench/profile.sh FIGURE N [RUNS]
#     FIGURE: sqlite | oledb | command | xml | service  (32-bit, in process)
#             fetch | remote-xml | call-floor            (64-bit client, out of process)
#             field-costs: no sampling; figure 3 with a clock around every FetchNext and
#             FieldAsString call, the time per call of each column
#   N is the table's rows, or for call-floor the ConIsConnected calls per run.
#   ZEL_PROFILE_CONNECTION: an OLE DB connection string for the in-process figures (oledb,
#     command, xml, service) instead of ZelLite on the generated file, e.g. ZelOdbc on a
#     PostgreSQL copy of BenchRows holding N rows (run-bench.sh shows how to load one).
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
TREES="${ZEL_TREES:-$ROOT/build}"
OUT="${ZEL_BENCH_OUT:-$ROOT/build/bench}"
export WINEPREFIX="${ZEL_BENCH_PREFIX:-$OUT/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
FREQUENCY="${ZEL_PROFILE_FREQUENCY:-999}"

figure="${1:?figure}"
n="${2:?N}"
runs="${3:-1}"
winpath() { local p="$1"; echo "Z:${p//\//\\}"; }
rows="$n"
[ "$figure" = call-floor ] && rows=1000
db="$(winpath "$OUT/data/rows-$rows.db")"
[ -f "$OUT/data/rows-$rows.db" ] || { echo "no data for N=$rows: run ./zel bench first" >&2; exit 1; }
raw="$(winpath "$OUT/profile-raw.csv")"
rm -f "$OUT/profile-raw.csv" "$OUT/profile-modules.txt"

case "$figure" in
  sqlite|oledb|command|xml|service)
    source=(--db "$db")
    [ -z "${ZEL_PROFILE_CONNECTION:-}" ] || source=(--connection "$ZEL_PROFILE_CONNECTION" --series p)
    program=("$TREES/win32/bin/ZelBenchLocal.exe" run --figure "$figure" "${source[@]}" --rows "$n"
             --modules "$(winpath "$OUT/profile-modules.txt")") ;;
  fetch) program=("$TREES/win64/bin/ZelBenchRemote.exe" run --figure fetch --db "$db" --n "$n" --walk-rows "${ZEL_WALK_ROWS:-300}") ;;
  remote-xml) program=("$TREES/win64/bin/ZelBenchRemote.exe" run --figure xml --db "$db" --n "$n") ;;
  call-floor) program=("$TREES/win64/bin/ZelBenchRemote.exe" run --figure call-floor --db "$db" --n "$n") ;;
  field-costs) ;;
  *) echo "unknown figure $figure" >&2; exit 2 ;;
esac

wineserver -p60 </dev/null >/dev/null 2>&1 || true
if [ "$figure" = field-costs ]; then
  echo "# field-costs, N=$n, $runs run(s); load average: $(cut -d' ' -f1-3 /proc/loadavg)"
  exec wine "$TREES/win32/bin/ZelBenchLocal.exe" field-costs --db "$db" --runs "$runs" --warmups 1
fi
data="$OUT/profile-$figure-$n.perf"
perf record -a -g -F "$FREQUENCY" -o "$data" -- wine "${program[@]}" --runs "$runs" --warmups 0 --out "$raw" >&2
echo "# $figure, N=$n, $runs run(s), perf at $FREQUENCY Hz on every CPU (one sample = 1/$FREQUENCY s of CPU)"
echo "# load average: $(cut -d' ' -f1-3 /proc/loadavg)"
grep -v '^figure,' "$OUT/profile-raw.csv" | cut -d, -f1-14 || true
# This prefix's wineserver works in /tmp/.../server-<device>-<inode of the prefix>.
server_dir="$(printf 'server-%x-%x' $(stat -c '%d %i' "$WINEPREFIX"))"
wineserver_pid=""
for pid in $(pgrep wineserver || true); do
  case "$(readlink "/proc/$pid/cwd" || true)" in *"/$server_dir") wineserver_pid="$pid" ;; esac
done
python3 "$ROOT/bench/perf-profile.py" "$data" ${wineserver_pid:+--wineserver-pid "$wineserver_pid"} --frequency "$FREQUENCY" --comm 'ZelBench|ZelPmDb32|wineserver' --modules "$OUT/profile-modules.txt" \
  --top "${ZEL_PROFILE_TOP:-25}" --callers "${ZEL_PROFILE_CALLERS:-8}" --depth "${ZEL_PROFILE_DEPTH:-6}" \
  --inclusive 'KobOleDbCommand::Execute' 'KobOleDbCommand::FetchNext' 'KobOleDbCommand::FieldAsString' \
              'KobOleDbXML::AddMetadata' 'KobOleDbXML::AddResultset' 'zel::SetAttribute' 'zel::AppendElement' \
              'zel::DocumentXml' 'domdoc_get_xml' 'xmlBufferResize' 'PlatformFormat' 'zel::DateText' \
              'zel::ValueText' 'zel::RealText' 'zel::FixedRealText' 'DateTextFormat::' \
              'ZelLite.dll!' 'ZelOdbc.dll!' 'OdbcRowSource::' 'odbc32' 'libodbc' 'psqlodbcw' 'Rowset::GetNextRows' 'Rowset::GetData' 'sqlite3_step' \
              'ZelOleDbImpl::' 'IsConnected' 'NdrStubCall|NdrClientCall|ndr_|rpcrt4' 'wineserver' \
  --pe "$TREES"/win32/bin/ZelBenchLocal.exe "$TREES"/win32/bin/ZelLite.dll "$TREES"/win32/bin/ZelOdbc.dll "$TREES"/win32/bin/ZelPmDb32.exe \
       "$TREES"/win64/bin/ZelBenchRemote.exe
