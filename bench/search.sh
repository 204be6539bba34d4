#!/bin/sh
# Search benchmark: trovix search (plain, and --long, which classifies every match as the tray does)
# against fd, bfs, find and a bare two-thread getdents64 walk, on a needle with many matches and one
# with few, warm cache, all in one hyperfine run per needle. Checks that every tool finds the same set
# of paths, then prints the ratios of wall time and of CPU time (user + system: the fairer figure on a
# loaded machine). Last, the memory a classified search holds per result: the peak RSS of a --long
# search that matches many entries less that of one matching few, over the extra results, less the
# names' own bytes.
#
#     bench/search.sh [TREE] [TROVIX]
#
# TREE defaults to /tmp/trovix-search-bench/tree (made with bench/make-tree.py when absent);
# TROVIX defaults to build-release/trovix (made by `scripts/build release`); it must be optimised: an
# unoptimised walker spends its time in std::array::operator[]. Needs hyperfine, fdfind, bfs, python3
# and a C++ compiler. RUNS (default 10) and NEEDLES (default "report quasar") may be set.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
tree=${1:-/tmp/trovix-search-bench/tree}
trovix=${2:-$here/../build-release/trovix}
work=$(mktemp -d "${TMPDIR:-/tmp}/trovix-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM

[ -x "$trovix" ] || { echo "no trovix binary at $trovix (run scripts/build release)" >&2; exit 2; }
if [ ! -d "$tree" ]; then
  python3 "$here/make-tree.py" "$tree"
fi
c++ -O2 -std=c++20 -pthread -o "$work/bare-walk" "$here/bare-walk.cpp"

needles=${NEEDLES:-"report quasar"}
runs=${RUNS:-10}

for needle in $needles; do
  echo "== needle \"$needle\""
  # Same set from every tool (fd and bfs print the root's children without a trailing slash too).
  "$trovix" search "$needle" "$tree" | sort > "$work/trovix.txt" || true
  "$trovix" search --long "$needle" "$tree" | cut -f5- | sort > "$work/long.txt" || true
  fdfind -u -i -F "$needle" "$tree" | sed 's:/$::' | sort > "$work/fd.txt"
  bfs "$tree" -iname "*$needle*" 2>/dev/null | sort > "$work/bfs.txt"
  find "$tree" -iname "*$needle*" 2>/dev/null | sort > "$work/find.txt"
  "$work/bare-walk" "$needle" "$tree" | sort > "$work/bare.txt"
  for tool in long fd bfs find bare; do
    if ! cmp -s "$work/trovix.txt" "$work/$tool.txt"; then
      echo "DIFFERENT RESULTS: trovix vs $tool ($(wc -l < "$work/trovix.txt") vs $(wc -l < "$work/$tool.txt") lines)"
      diff "$work/trovix.txt" "$work/$tool.txt" | head -5
    fi
  done
  echo "matches: $(wc -l < "$work/trovix.txt")"

  hyperfine --warmup 2 --runs "$runs" --export-json "$work/$needle.json" -N \
    --command-name trovix "$trovix search $needle $tree" \
    --command-name long "$trovix search --long $needle $tree" \
    --command-name fd "fdfind -u -i -F $needle $tree" \
    --command-name bfs "bfs $tree -iname *$needle*" \
    --command-name find "find $tree -iname *$needle*" \
    --command-name bare "$work/bare-walk $needle $tree" \
    --output /dev/null

  python3 - "$work/$needle.json" <<'EOF'
import json, sys
results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
mean = {name: r["mean"] for name, r in results.items()}
# The median too: on a shared machine one slow run can move a mean by a tenth.
median = {name: r["median"] for name, r in results.items()}
cpu = {name: r["user"] + r["system"] for name, r in results.items()}
for name in ["trovix", "long", "fd", "bfs", "find", "bare"]:
    print(f"  {name:7s} {mean[name]:.3f} s  (+/- {results[name]['stddev']:.3f})   median {median[name]:.3f} s"
          f"   cpu {cpu[name]:.3f} s")
def ratios(a, b, goal):
    print(f"  {a} / {b}".ljust(16) + f"= {mean[a] / mean[b]:.2f}   median {median[a] / median[b]:.2f}"
          f"   cpu {cpu[a] / cpu[b]:.2f}   (goal <= {goal})")
ratios("long", "trovix", "1.40")
ratios("long", "fd", "0.60")
t = mean["trovix"]
print(f"  trovix / fd   = {t / mean['fd']:.2f}   (goal <= 0.50)")
print(f"  trovix / bfs  = {t / mean['bfs']:.2f}")
print(f"  trovix / bare = {t / mean['bare']:.2f}   (goal <= 1.50)")
print(f"  bfs / fd      = {mean['bfs'] / mean['fd']:.2f}")
print(f"  bare / fd     = {mean['bare'] / mean['fd']:.2f}")
EOF
done

# Bytes held per classified result.
many=${MEMORY_NEEDLE:-e}
few=quasar
peak() { /usr/bin/time -f %M "$trovix" search --long --count "$1" "$tree" 2>&1 >/dev/null | tail -1; }
count() { "$trovix" search --count "$1" "$tree" | sed 's:Found \([0-9]*\).*:\1:'; }
namebytes=$("$trovix" search "$many" "$tree" | python3 -c 'import sys, os
n = 0
for line in sys.stdin.buffer:
    n += len(os.path.basename(line.rstrip(b"\n")))
print(n)')
kb_many=$(peak "$many"); kb_few=$(peak "$few")
n_many=$(count "$many"); n_few=$(count "$few")
python3 - "$kb_many" "$kb_few" "$n_many" "$n_few" "$namebytes" <<'EOF'
import sys
kb_many, kb_few, n_many, n_few, names = map(int, sys.argv[1:])
per = (kb_many - kb_few) * 1024 / (n_many - n_few)
print(f"== memory: {n_many} results peak {kb_many} KB, {n_few} results peak {kb_few} KB")
print(f"  {per:.0f} bytes per result, {per - names / n_many:.0f} beyond the name (goal <= 200)")
EOF
