#!/usr/bin/env bash
# Builds the Windows package of ZelPmDb32: OUT_DIR/ZelPmDb32-VERSION.msi (wixl, from
# ZelPmDb32.wxs next to this script) and OUT_DIR/ZelPmDb32-VERSION.zip holding the same files in
# one folder. The programs are copied without their debug information; the texts are the README,
# THIRD-PARTY-NOTICES.txt and, in licenses/, the copyright files of the Debian packages whose
# code is linked into the programs.
#
# usage: make-package.sh VERSION PRODUCT_CODE OUT_DIR SERVER_EXE PROVIDER_DLL ZELDB_EXE ODBC_PROVIDER_DLL
set -euo pipefail

if [ $# -ne 7 ]; then
  echo "usage: $0 VERSION PRODUCT_CODE OUT_DIR SERVER_EXE PROVIDER_DLL ZELDB_EXE ODBC_PROVIDER_DLL" >&2
  exit 2
fi
version="$1" product_code="$2" out_dir="$3" server_exe="$4" provider_dll="$5" zeldb_exe="$6" odbc_dll="$7"

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(dirname "$here")"
name="ZelPmDb32-$version"

fail() { echo "make-package: $*" >&2; exit 1; }

# The first of the given files that exists.
first_file() {
  local f
  for f in "$@"; do
    [ -f "$f" ] && { printf '%s\n' "$f"; return 0; }
  done
  return 1
}

# SQLite is built from Debian's sqlite3 source package; the runtime start-up code, winpthreads,
# libgcc and libstdc++ come from the mingw-w64 packages and are linked statically.
sqlite_copyright="$(first_file /usr/share/doc/libsqlite3-0/copyright /usr/share/doc/sqlite3/copyright)" ||
  fail "SQLite's copyright file is missing (Debian package sqlite3)"
mingw_copyright="$(first_file /usr/share/doc/mingw-w64-i686-dev/copyright /usr/share/doc/mingw-w64-common/copyright)" ||
  fail "the mingw-w64 runtime's copyright file is missing (Debian package mingw-w64)"
gcc_copyright="$(first_file /usr/share/doc/gcc-mingw-w64-base/copyright)" ||
  fail "the GCC runtime's copyright file is missing (Debian package gcc-mingw-w64-base)"

for f in "$server_exe" "$provider_dll" "$zeldb_exe" "$odbc_dll"; do
  [ -f "$f" ] || fail "missing $f (build both trees first)"
done
command -v wixl >/dev/null || fail "wixl is missing (Debian package wixl)"
command -v zip >/dev/null || fail "zip is missing (Debian package zip)"

mkdir -p "$out_dir"
work="$(mktemp -d "$out_dir/.package.XXXXXX")"
trap 'rm -rf "$work"' EXIT
stage="$work/$name"
mkdir -p "$stage/licenses"

i686-w64-mingw32-strip --strip-all -o "$stage/ZelPmDb32.exe" "$server_exe"
i686-w64-mingw32-strip --strip-all -o "$stage/ZelLite.dll" "$provider_dll"
i686-w64-mingw32-strip --strip-all -o "$stage/ZelOdbc.dll" "$odbc_dll"
x86_64-w64-mingw32-strip --strip-all -o "$stage/zeldb.exe" "$zeldb_exe"
cp "$root/README.md" "$stage/README.md"
cp "$here/THIRD-PARTY-NOTICES.txt" "$stage/THIRD-PARTY-NOTICES.txt"
cp "$sqlite_copyright" "$stage/licenses/sqlite.txt"
cp "$mingw_copyright" "$stage/licenses/mingw-w64-runtime.txt"
cp "$gcc_copyright" "$stage/licenses/gcc-runtime.txt"

# wixl looks files up relative to the current folder only.
(cd "$stage" && wixl --arch x64 -D "Version=$version" -D "ProductCode=$product_code" \
   -o "$work/$name.msi" "$here/ZelPmDb32.wxs")
(cd "$work" && zip -q -r -X "$work/$name.zip" "$name")

mv -f "$work/$name.msi" "$out_dir/$name.msi"
mv -f "$work/$name.zip" "$out_dir/$name.zip"
for f in "$out_dir/$name.msi" "$out_dir/$name.zip"; do
  printf 'make-package: %s (%s bytes)\n' "$f" "$(stat -c %s "$f")"
done
