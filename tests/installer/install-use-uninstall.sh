#!/usr/bin/env bash
# The package as a user meets it, in a Wine prefix of its own made for this run: a silent
# install, zeldb from the installed location on a new database (create, a table, rows, a query
# as the server's XML document), a silent uninstall, and then no file and no registry entry of
# the server or the provider left behind. Then once more, install and uninstall only, with the
# other msiexec. The prefix and its wineserver go at the end.
#
# Two msiexecs: Windows installs through its 64-bit installer service, so the main round uses
# Wine's 64-bit msiexec; Debian's `wine msiexec` starts the 32-bit one (the `wine` command is
# the 32-bit loader, which runs built-in programs in their 32-bit form), and the README tells
# Wine users to type exactly that.
#
# usage: install-use-uninstall.sh PACKAGE.msi VERSION PRODUCT_CODE WORK_DIR
set -euo pipefail

if [ $# -ne 4 ]; then
  echo "usage: $0 PACKAGE.msi VERSION PRODUCT_CODE WORK_DIR" >&2
  exit 2
fi
msi="$1" version="$2" product_code="$3" work_root="$4"

# Ids the server and the provider register (automation/ZelPmDb32.idl, provider/ProviderIdentity.h).
SERVICE_CLSID='{FD4044AD-1CA6-4DD3-814D-B2ECB0431853}'
HELPER_CLSID='{44B7A29C-EAEA-4527-B0B0-297E61EFEE3E}'
LIBID='{F79A1F69-82FE-4599-9A34-F5A400CB84A1}'  # also the server's AppID
PROVIDER_CLSID='{6ED3CDC0-CB85-478B-86C2-ACC437DDD288}'
SERVER_KEYS=(
  "CLSID\\$SERVICE_CLSID"
  "CLSID\\$HELPER_CLSID"
  "ZelPmDb32.ZelOleDbImpl.1"
  "ZelPmDb32.ZelOleDbHelperImpl.1"
  "AppID\\$LIBID"
  "AppID\\ZelPmDb32.EXE"
  "TypeLib\\$LIBID"
)
PROVIDER_KEYS=(
  "CLSID\\$PROVIDER_CLSID"
  "ZelLite.OLEDB.1"
  "ZelLite.OLEDB"
  "CLSID\\{84AC49C0-B098-45FD-B026-21C5A56F5FA9}"
  "ZelOdbc.OLEDB.1"
  "ZelOdbc.OLEDB"
)
# What any registry entry of the server (classes, type library, its two interfaces) or of the
# provider carries; each must show up in the registry file after the install and none after the
# uninstall.
REGISTRY_MARKS=(
  FD4044AD-1CA6-4DD3-814D-B2ECB0431853
  44B7A29C-EAEA-4527-B0B0-297E61EFEE3E
  F79A1F69-82FE-4599-9A34-F5A400CB84A1
  380BE416-9310-4502-8B6A-493B8D9DF28F
  75EA80C3-5F61-46C3-8282-564C6FEECCCC
  6ED3CDC0-CB85-478B-86C2-ACC437DDD288
  84AC49C0-B098-45FD-B026-21C5A56F5FA9
  'ZelPmDb32\.ZelOleDb'
  'ZelLite\.OLEDB'
  'ZelOdbc\.OLEDB'
)

[ -f "$msi" ] || { echo "FAIL: no package at $msi (build it: ./zel package)" >&2; exit 1; }
mkdir -p "$work_root"
work_root="$(cd "$work_root" && pwd)"  # Wine wants an absolute prefix path
# What a run that was killed (a CTest timeout) left behind: its wineserver and its prefix.
for old in "$work_root"/run.*; do
  [ -d "$old" ] || continue
  WINEPREFIX="$old/prefix" wineserver -k >/dev/null 2>&1 || true
  rm -rf "$old"
done
work="$(mktemp -d "$work_root/run.XXXXXX")"
export WINEPREFIX="$work/prefix"
export WINEDEBUG=-all
# No Mono or Gecko installers in the fresh prefix.
export WINEDLLOVERRIDES="mscoree,mshtml="
WINE64=/usr/lib/wine/wine64
[ -x "$WINE64" ] || WINE64="$(command -v wine64)" || { echo "FAIL: no 64-bit Wine loader" >&2; exit 1; }

cleanup() {
  local status=$?
  wineserver -k >/dev/null 2>&1 || true
  wineserver -w >/dev/null 2>&1 || true
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT

step() { printf '[%3ds] %s\n' "$SECONDS" "$*"; }
fail() {
  printf 'FAIL: %s\n' "$*"
  local log
  for log in "$work"/*.log; do
    [ -s "$log" ] || continue
    printf -- '--- %s (last lines)\n' "$(basename "$log")"
    tail -n 30 "$log" | tr -d '\r'
  done
  exit 1
}

win_path() { printf 'Z:%s' "${1//\//\\}"; }

# Waits until every program of the prefix has ended and the wineserver with them, which also
# writes the registry file out. After zeldb, that is the server process ending with its last
# client, so that nothing holds the installed files.
wine_idle() { wineserver -w; }

# Runs a Windows program with the given loader; its output goes to files, never to a pipe that
# the wineserver and the programs it starts would inherit and keep open. Returns the program's
# exit status.
run_with() { # loader name program args...
  local loader="$1" name="$2"
  shift 2
  "$loader" "$@" </dev/null >"$work/$name.out" 2>"$work/$name.err.log"
}
run() { run_with wine "$@"; }

# A run's standard output with CR LF as LF.
output_of() { tr -d '\r' <"$work/$1.out"; }
errors_of() { tr -d '\r' <"$work/$1.err.log"; }

# The registry as the 32-bit server and provider see it: HKLM\Software\Classes in the 32-bit
# view, read by the 32-bit reg.exe.
REG32='C:\windows\syswow64\reg.exe'
classes_key_exists() { run reg-query "$REG32" query "HKLM\\Software\\Classes\\$1"; }
classes_default_value() { # key -> the default value's data
  run reg-query "$REG32" query "HKLM\\Software\\Classes\\$1" /ve || return 1
  output_of reg-query | sed -n 's/^ *(Default) *REG_SZ *//p' | head -n 1
}
# The product's entry among the installed programs (an x64 package: the 64-bit view).
uninstall_key="HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$product_code"
product_registered() { run installed-product reg query "$uninstall_key" /reg:64; }

server_dir="$WINEPREFIX/drive_c/Program Files (x86)/ZelPmDb32"
client_dir="$WINEPREFIX/drive_c/Program Files/ZelPmDb32"
INSTALLED_FILES=("$server_dir/ZelPmDb32.exe" "$server_dir/ZelLite.dll" "$server_dir/ZelOdbc.dll"
                 "$client_dir/zeldb.exe" "$client_dir/README.md" "$client_dir/THIRD-PARTY-NOTICES.txt"
                 "$client_dir/licenses/sqlite.txt" "$client_dir/licenses/mingw-w64-runtime.txt"
                 "$client_dir/licenses/gcc-runtime.txt")

install_package() { # loader label
  step "silent install with the $2 msiexec: msiexec /i $(basename "$msi") /qn"
  run_with "$1" install msiexec /i "$(win_path "$msi")" /qn || fail "msiexec /i exited with $?"
  local f key clsid value
  for f in "${INSTALLED_FILES[@]}"; do
    [ -f "$f" ] || fail "not installed: ${f#"$WINEPREFIX/"}"
  done
  product_registered || fail "the product is not registered under $uninstall_key"
  for key in "${SERVER_KEYS[@]}" "${PROVIDER_KEYS[@]}"; do
    classes_key_exists "$key" || fail "not registered: HKLM\\Software\\Classes\\$key (32-bit view)"
  done
  for clsid in "$SERVICE_CLSID" "$HELPER_CLSID"; do
    value="$(classes_default_value "CLSID\\$clsid\\LocalServer32")"
    [ "${value,,}" = 'c:\program files (x86)\zelpmdb32\zelpmdb32.exe' ] ||
      fail "LocalServer32 of $clsid is '$value', not the installed server"
  done
  value="$(classes_default_value "CLSID\\$PROVIDER_CLSID\\InprocServer32")"
  [ "${value,,}" = 'c:\program files (x86)\zelpmdb32\zellite.dll' ] ||
    fail "InprocServer32 of the provider is '$value', not the installed DLL"
}

registry_marks_present() {
  wine_idle
  local mark
  for mark in "${REGISTRY_MARKS[@]}"; do
    grep -q -i -E "$mark" "$WINEPREFIX/system.reg" || fail "no registry entry carries $mark after the install"
  done
}

uninstall_package() { # loader label
  wine_idle
  step "silent uninstall with the $2 msiexec: msiexec /x $(basename "$msi") /qn"
  run_with "$1" uninstall msiexec /x "$(win_path "$msi")" /qn || fail "msiexec /x exited with $?"
  local key f mark leftovers
  for key in "${SERVER_KEYS[@]}" "${PROVIDER_KEYS[@]}"; do
    if classes_key_exists "$key"; then fail "still registered: HKLM\\Software\\Classes\\$key (32-bit view)"; fi
  done
  if product_registered; then fail "the product is still registered"; fi
  for f in "${INSTALLED_FILES[@]}"; do
    [ ! -e "$f" ] || fail "not removed: ${f#"$WINEPREFIX/"}"
  done
  [ ! -e "$server_dir" ] || fail "not removed: the folder ${server_dir#"$WINEPREFIX/"}"
  [ ! -e "$client_dir" ] || fail "not removed: the folder ${client_dir#"$WINEPREFIX/"}"
  # Nothing anywhere in the machine's registry, in either view, names them any more.
  wine_idle
  for mark in "${REGISTRY_MARKS[@]}"; do
    leftovers="$(grep -n -i -E "$mark" "$WINEPREFIX/system.reg" || true)"
    [ -z "$leftovers" ] || fail "registry entries left in system.reg:
$leftovers"
  done
}

step "fresh Wine prefix in $WINEPREFIX"
wineboot -i </dev/null >"$work/wineboot.log" 2>&1 || fail "wineboot failed"
# The first session must end before the next one starts: a program started while it is still
# settling meets a second services.exe in the same prefix, and COM never hands the class object
# of a freshly started out-of-process server to its client.
wine_idle
[ -f "$WINEPREFIX/system.reg" ] && [ -d "$WINEPREFIX/drive_c/windows/syswow64" ] ||
  fail "wineboot made no 64-bit prefix"

install_package "$WINE64" 64-bit

zeldb='C:\Program Files\ZelPmDb32\zeldb.exe'
mkdir -p "$WINEPREFIX/drive_c/zeldb-test"
db='C:\zeldb-test\parts.db'
expect_output() { # name expected-text
  local actual
  actual="$(output_of "$1")"
  [ "$actual" = "$2" ] || fail "$1 printed:
$actual
expected:
$2"
}

step "zeldb --version from the installed location"
run version "$zeldb" --version || fail "zeldb --version exited with $?"
expect_output version "zeldb $version"

step "zeldb create $db"
run create "$zeldb" create "$db" || fail "zeldb create exited with $?: $(errors_of create)"
expect_output create "created $db"
[ -f "$WINEPREFIX/drive_c/zeldb-test/parts.db" ] || fail "zeldb create made no file"

step "zeldb exec: a table and two rows"
run create-table "$zeldb" exec "$db" \
  "CREATE TABLE Parts (PartNo VARCHAR(12) NOT NULL, Name VARCHAR(40), Qty INTEGER)" ||
  fail "CREATE TABLE failed: $(errors_of create-table)"
run insert "$zeldb" exec "$db" \
  "INSERT INTO Parts VALUES ('B-M6', 'Hex bolt M6', 1200), ('W-6', 'Washer \"6\" mm', NULL)" ||
  fail "INSERT failed: $(errors_of insert)"
expect_output insert "2 rows affected"

step "zeldb query --xml"
run query "$zeldb" query "$db" "SELECT PartNo, Name, Qty FROM Parts ORDER BY PartNo" --xml ||
  fail "query failed: $(errors_of query)"
# Column sizes are the provider's business, not the package's: only their presence counts here.
sed -i 's/ColSize="[0-9]*"/ColSize="#"/' "$work/query.out"
tab=$'\t'
expect_output query "<?xml version=\"1.0\" encoding=\"UTF-16\"?>
<QueryData Version=\"5.0\">
$tab<Metadata>
$tab$tab<ColumnDef Name=\"PartNo\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"130\" ColSize=\"#\"/>
$tab$tab<ColumnDef Name=\"Name\" Integral=\"N\" Numeric=\"N\" BlobData=\"N\" Datatype=\"130\" ColSize=\"#\"/>
$tab$tab<ColumnDef Name=\"Qty\" Integral=\"Y\" Numeric=\"N\" BlobData=\"N\" Datatype=\"3\" ColSize=\"#\"/>
$tab</Metadata>
$tab<Resultset>
$tab$tab<Rowset C1=\"B-M6\" C2=\"Hex bolt M6\" C3=\"1200\"/>
$tab$tab<Rowset C1=\"W-6\" C2=\"Washer &quot;6&quot; mm\"/>
$tab</Resultset>
</QueryData>"

registry_marks_present
uninstall_package "$WINE64" 64-bit
[ -f "$WINEPREFIX/drive_c/zeldb-test/parts.db" ] || fail "the uninstall removed the user's database"

install_package wine 32-bit
registry_marks_present
uninstall_package wine 32-bit

step "done: ZelPmDb32 $version installed, used and uninstalled"
