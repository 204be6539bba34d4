#!/bin/sh
# Folder-size benchmark: trovix size against du -sl, gdu and find on the generated tree, warm cache, in one
# hyperfine run. Checks first that trovix's sum equals find's allocated sum (every non-folder's blocks,
# hard links each time, one file system), then prints the ratios.
#
#     bench/size.sh [TREE] [TROVIX]
#
# TREE defaults to /tmp/trovix-size-bench/tree: bench/make-tree.py's tree, then one file in ten given
# 0-16 KiB of data and a few hundred hard links (so that sizes and links are really summed). TROVIX
# defaults to build-release/trovix. Needs hyperfine, gdu and python3. RUNS (default 10) may be set.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
tree=${1:-/tmp/trovix-size-bench/tree}
trovix=${2:-$here/../build-release/trovix}
runs=${RUNS:-10}

[ -x "$trovix" ] || { echo "no trovix binary at $trovix (run scripts/build release)" >&2; exit 2; }
[ -d "$tree" ] || python3 "$here/make-tree.py" "$tree"
# The data and links go in once; a marker beside the tree says it is done.
if [ ! -e "$tree.filled" ]; then
  python3 - "$tree" <<'EOF_PY'
import os, random, sys
rng = random.Random(11)
files = []
for top, dirs, names in os.walk(sys.argv[1]):
    for name in names:
        path = os.path.join(top, name)
        if not os.path.islink(path):
            files.append(path)
for path in files[::10]:
    with open(path, "wb") as f:
        f.write(b"s" * rng.randint(0, 16384))
for i, path in enumerate(rng.sample(files, 300)):
    os.link(path, os.path.join(os.path.dirname(path), f"hardlink-{i}"))
EOF_PY
  touch "$tree.filled"
fi

trovix_sum=$("$trovix" size "$tree" | cut -f1)
find_sum=$(find "$tree" -mindepth 1 -xdev ! -type d -printf '%b\n' | awk '{ s += $1 } END { printf "%d", s * 512 }')
# du and gdu count the folders' own blocks too (and du counts a hard-linked file once without -l).
du_sum=$(du -sl --block-size=1 "$tree" | cut -f1)
dir_sum=$(find "$tree" -xdev -type d -printf '%b\n' | awk '{ s += $1 } END { printf "%d", s * 512 }')
echo "entries: $(find "$tree" -mindepth 1 | wc -l)"
echo "trovix size:        $trovix_sum"
echo "find (non-folders): $find_sum"
echo "du -sl - folders:   $((du_sum - dir_sum))"
if [ "$trovix_sum" != "$find_sum" ]; then
  echo "DIFFERENT SUMS: trovix $trovix_sum vs find $find_sum"
  exit 1
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/trovix-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
hyperfine --warmup 2 --runs "$runs" --export-json "$work/size.json" -N \
  --command-name trovix "$trovix size $tree" \
  --command-name du "du -sl --block-size=1 $tree" \
  --command-name gdu "gdu -n -p -s -x $tree" \
  --output /dev/null

python3 - "$work/size.json" <<'EOF_PY'
import json, sys
results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
for name in ["trovix", "du", "gdu"]:
    print(f"  {name:7s} {results[name]['mean']:.3f} s  (+/- {results[name]['stddev']:.3f})")
t = results["trovix"]["mean"]
print(f"  trovix / du  = {t / results['du']['mean']:.2f}   (goal <= 0.75)")
print(f"  trovix / gdu = {t / results['gdu']['mean']:.2f}")
EOF_PY
