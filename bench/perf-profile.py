#!/usr/bin/env python3
"""Flat profile of Wine processes from a `perf record` file.

perf cannot read the symbols of PE modules, but it records where each module was mapped:
Wine's own DLLs are mapped from their files (page-aligned images), and the project's
programs and DLLs (built with 512-byte file alignment) are copied into anonymous memory at
their image base. This script turns every sample into module + function:

- a sample in a mapped .dll/.exe file: RVA from the mapping's start, symbol from `nm`;
- a sample in anonymous memory: the --pe module whose image range holds the address;
- anything else (kernel, ELF libraries): perf's own symbol.

With a call graph (`perf record -g`), --callers K also lists, for the K functions with the
most samples, the functions they were called from (Wine's modules keep frame pointers; the
project's optimised code does not, so chains stop soon after entering it).

usage: perf-profile.py PERF_DATA [--pe FILE...] [--comm REGEX] [--top N] [--callers K [--depth D]]
                       [--inclusive REGEX...]
"""

import argparse
import bisect
import collections
import os
import re
import subprocess
import sys

MMAP = re.compile(r"PERF_RECORD_MMAP2? (\d+)/\d+: \[0x([0-9a-f]+)\(0x([0-9a-f]+)\) @ (0x[0-9a-f]+|\d+) .*?\]: \S+ (.+)$")
SAMPLE = re.compile(r"^\s*(.+?)\s+(\d+)\s+([0-9a-f]+)\s+(.*?)\s*\((.+)\)\s*$")
HEADER = re.compile(r"^(\S.*?)\s+(\d+)\s*$")
FRAME = re.compile(r"^\s+([0-9a-f]+)\s+(.*?)\s*\((.+)\)\s*$")


def pe_header(path):
    """ImageBase, SizeOfImage and the nm to use for a PE file."""
    out = subprocess.run(["objdump", "-p", path], capture_output=True, text=True).stdout
    if not out:
        out = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", path], capture_output=True, text=True).stdout
    base = re.search(r"ImageBase\s+([0-9a-fA-F]+)", out)
    size = re.search(r"SizeOfImage\s+([0-9a-fA-F]+)", out)
    nm = "x86_64-w64-mingw32-nm" if "pei-x86-64" in out else "i686-w64-mingw32-nm"
    if not base or not size:
        return None
    return int(base.group(1), 16), int(size.group(1), 16), nm


class Symbols:
    """Text symbols of one PE file, looked up by virtual address at its image base."""

    def __init__(self, path, nm):
        self.addresses = []
        self.names = []
        out = subprocess.run([nm, "-n", "-C", "--defined-only", path], capture_output=True, text=True).stdout
        for line in out.splitlines():
            parts = line.split(" ", 2)
            if len(parts) == 3 and parts[1] in "tT":
                self.addresses.append(int(parts[0], 16))
                self.names.append(parts[2])

    def lookup(self, address):
        i = bisect.bisect_right(self.addresses, address) - 1
        return self.names[i] if i >= 0 else "[unknown]"


class Resolver:
    def __init__(self, pe_files):
        self.headers = {}
        self.symbols = {}
        self.anonymous = []  # (start, end, path) of the --pe modules at their image base
        for path in pe_files:
            header = self.header(path)
            if header:
                self.anonymous.append((header[0], header[0] + header[1], path))

    def load_module_map(self, path):
        """Actual load addresses of the --pe modules, from the measured process."""
        by_name = {os.path.basename(p).lower(): p for _, _, p in self.anonymous}
        moved = []
        for line in open(path, encoding="utf-8", errors="replace"):
            parts = line.split(" ", 2)
            if len(parts) != 3:
                continue
            name = parts[2].strip().replace("\\", "/").rsplit("/", 1)[-1].lower()
            if name in by_name:
                base, size = int(parts[0], 16), int(parts[1], 16)
                moved.append((base, base + size, by_name[name]))
        known = {p for _, _, p in moved}
        self.anonymous = moved + [entry for entry in self.anonymous if entry[2] not in known]

    def symbol_at(self, path, address):
        """Symbol of an address in a module loaded at `start` of self.anonymous."""
        for start, end, p in self.anonymous:
            if p == path and start <= address < end:
                return self.symbol(path, self.header(path)[0] + (address - start))
        return "[unknown]"

    def header(self, path):
        if path not in self.headers:
            self.headers[path] = pe_header(path) if os.path.isfile(path) else None
        return self.headers[path]

    def symbol(self, path, address):
        header = self.header(path)
        if not header:
            return "[unknown]"
        if path not in self.symbols:
            self.symbols[path] = Symbols(path, header[2])
        return self.symbols[path].lookup(address)

    def resolve(self, bases, comm, pid, ip, sym, dso):
        name = os.path.basename(dso)
        if dso.lower().endswith((".dll", ".exe")):
            header = self.header(dso)
            if header and ip < header[1]:
                # perf prints unresolved call-chain entries relative to the module (an RVA).
                return name, self.symbol(dso, header[0] + ip)
            base = bases.get((pid, dso))
            if header and base is not None:
                return name, self.symbol(dso, header[0] + (ip - base))
            return name, sym or "[unknown]"
        if "perf-" in name or dso in ("//anon", "[anon]", "[unknown]"):
            candidates = [path for start, end, path in self.anonymous if start <= ip < end]
            if len(candidates) > 1:
                # Every program loads at the same image base: take the one this process runs
                # (perf keeps 15 characters of the process name), or else a DLL.
                own = [p for p in candidates if os.path.basename(p)[:15].lower() == comm[:15].lower()]
                dlls = [p for p in candidates if p.lower().endswith(".dll")]
                candidates = own or dlls or candidates
            if candidates:
                return os.path.basename(candidates[0]), self.symbol_at(candidates[0], ip)
            return "[anonymous]", "[unknown]"
        return name, sym if sym and sym != "[unknown]" else "[unknown]"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("data")
    parser.add_argument("--pe", nargs="*", default=[], help="PE modules loaded into anonymous memory")
    parser.add_argument("--modules", help="module map written by the measured program (base size path)")
    parser.add_argument("--comm", default=".", help="only processes whose name matches")
    parser.add_argument("--wineserver-pid", type=int,
                        help="keep only this wineserver (other prefixes on the machine have their own)")
    parser.add_argument("--frequency", type=float, help="sampling frequency: also print CPU seconds")
    parser.add_argument("--top", type=int, default=25)
    parser.add_argument("--callers", type=int, default=0, help="callers of the top K functions (needs -g)")
    parser.add_argument("--depth", type=int, default=1, help="callers shown per path (with --callers)")
    parser.add_argument("--inclusive", nargs="*", default=[],
                        help="regexes: share of samples with a matching frame in the chain (needs -g)")
    args = parser.parse_args()

    script = subprocess.run(
        ["perf", "script", "-i", args.data, "-F", "comm,pid,ip,sym,dso", "--show-mmap-events"],
        capture_output=True, text=True, errors="replace")
    if script.returncode != 0:
        sys.exit(script.stderr)

    resolver = Resolver(args.pe)
    if args.modules and os.path.isfile(args.modules):
        resolver.load_module_map(args.modules)
    bases = {}
    comm_filter = re.compile(args.comm)
    by_process = collections.Counter()
    by_module = collections.defaultdict(collections.Counter)
    by_symbol = collections.defaultdict(collections.Counter)
    callers = collections.defaultdict(lambda: collections.defaultdict(collections.Counter))
    inclusive_patterns = [(text, re.compile(text)) for text in args.inclusive]
    inclusive = collections.defaultdict(collections.Counter)

    def account(comm, pid, frames):
        """frames: (ip, sym, dso) from the sampled instruction outwards."""
        if not frames or not comm_filter.search(comm):
            return
        if args.wineserver_pid and "wineserver" in comm and pid != args.wineserver_pid:
            return
        resolved = [resolver.resolve(bases, comm, pid, ip, sym, dso) for ip, sym, dso in frames]
        module, symbol = resolved[0]
        process = f"{comm} ({pid})"
        leaf = f"{module}!{symbol}"
        by_process[process] += 1
        by_module[process][module] += 1
        by_symbol[process][leaf] += 1
        names = [f"{m}!{f}" for m, f in resolved]
        for text, pattern in inclusive_patterns:
            if any(pattern.search(name) for name in names):
                inclusive[process][text] += 1
        path = []
        for caller_module, caller_symbol in resolved[1:]:
            caller = f"{caller_module}!{caller_symbol}"
            if caller != (path[-1] if path else leaf):
                path.append(caller)
                if len(path) == args.depth:
                    break
        if path:
            callers[process][leaf][" < ".join(path)] += 1

    header = None
    frames = []
    for line in script.stdout.splitlines():
        if "PERF_RECORD_MMAP" in line:
            m = MMAP.search(line)
            if m and int(m.group(4), 0) == 0:
                bases.setdefault((int(m.group(1)), m.group(5).strip()), int(m.group(2), 16))
            continue
        if not line.strip():
            if header:
                account(header[0], header[1], frames)
            header, frames = None, []
            continue
        if header:
            m = FRAME.match(line)
            if m:
                frames.append((int(m.group(1), 16), m.group(2), m.group(3)))
            continue
        m = HEADER.match(line)
        if m:  # a sample with a call chain: the frames follow, one per line
            header, frames = (m.group(1), int(m.group(2))), []
            continue
        m = SAMPLE.match(line)
        if m:
            account(m.group(1), int(m.group(2)), [(int(m.group(3), 16), m.group(4), m.group(5))])
    if header:
        account(header[0], header[1], frames)

    total = sum(by_process.values())
    if not total:
        sys.exit("no samples matched")
    print(f"{total} samples")
    for process, count in by_process.most_common():
        cpu = f", about {count / args.frequency:.2f} s of CPU" if args.frequency else ""
        print(f"\n{process}: {count} samples{cpu}, {100.0 * count / total:.1f}% of all matched")
        print("  by module:")
        for module, n in by_module[process].most_common(12):
            print(f"    {100.0 * n / count:5.1f}%  {module}")
        print("  by function:")
        for symbol, n in by_symbol[process].most_common(args.top):
            print(f"    {100.0 * n / count:5.1f}%  {symbol}")
        if inclusive_patterns:
            print("  samples with a matching frame anywhere in the chain (inclusive):")
            for text, _ in inclusive_patterns:
                print(f"    {100.0 * inclusive[process][text] / count:5.1f}%  {text}")
        if args.callers and callers[process]:
            print(f"  callers of the top {args.callers} functions (share of that function's samples):")
            for symbol, n in by_symbol[process].most_common(args.callers):
                print(f"    {symbol}:")
                for caller, k in callers[process][symbol].most_common(6):
                    print(f"      {100.0 * k / n:5.1f}%  {caller}")


if __name__ == "__main__":
    main()
