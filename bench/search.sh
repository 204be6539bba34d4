#!/bin/sh
# Search benchmark: trovix search against fd, bfs, find and a bare two-thread getdents64 walk, on a
# needle with many matches and one with few, warm cache, all in one hyperfine run per needle.
# Checks that every tool finds the same set of paths, then prints the ratios to fd, bfs and the
# bare walk.
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
  fdfind -u -i -F "$needle" "$tree" | sed 's:/$::' | sort > "$work/fd.txt"
  bfs "$tree" -iname "*$needle*" 2>/dev/null | sort > "$work/bfs.txt"
  find "$tree" -iname "*$needle*" 2>/dev/null | sort > "$work/find.txt"
  "$work/bare-walk" "$needle" "$tree" | sort > "$work/bare.txt"
  for tool in fd bfs find bare; do
    if ! cmp -s "$work/trovix.txt" "$work/$tool.txt"; then
      echo "DIFFERENT RESULTS: trovix vs $tool ($(wc -l < "$work/trovix.txt") vs $(wc -l < "$work/$tool.txt") lines)"
      diff "$work/trovix.txt" "$work/$tool.txt" | head -5
    fi
  done
  echo "matches: $(wc -l < "$work/trovix.txt")"

  hyperfine --warmup 2 --runs "$runs" --export-json "$work/$needle.json" -N \
    --command-name trovix "$trovix search $needle $tree" \
    --command-name fd "fdfind -u -i -F $needle $tree" \
    --command-name bfs "bfs $tree -iname *$needle*" \
    --command-name find "find $tree -iname *$needle*" \
    --command-name bare "$work/bare-walk $needle $tree" \
    --output /dev/null

  python3 - "$work/$needle.json" <<'EOF'
import json, sys
results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
mean = {name: r["mean"] for name, r in results.items()}
for name in ["trovix", "fd", "bfs", "find", "bare"]:
    print(f"  {name:7s} {mean[name]:.3f} s  (+/- {results[name]['stddev']:.3f})")
t = mean["trovix"]
print(f"  trovix / fd   = {t / mean['fd']:.2f}   (goal <= 0.50)")
print(f"  trovix / bfs  = {t / mean['bfs']:.2f}")
print(f"  trovix / bare = {t / mean['bare']:.2f}   (goal <= 1.50)")
print(f"  bfs / fd      = {mean['bfs'] / mean['fd']:.2f}")
print(f"  bare / fd     = {mean['bare'] / mean['fd']:.2f}")
EOF
done
