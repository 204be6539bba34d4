#!/bin/sh
# Memory a sorted, classified search holds per result: the peak RSS of `trovix search --long --sort
# size NEEDLE` less that of a needle matching almost nothing, over the extra results. Each peak is the
# smallest of RUNS runs (other processes cannot make a run smaller). Fails (exit 1) when a needle costs
# more than LIMIT bytes per result.
#
#     bench/search-memory.sh [TREE] [TROVIX]
#
# TREE defaults to /tmp/trovix-search-bench/tree (made with bench/make-tree.py when absent); TROVIX
# to build-release/trovix. NEEDLES (default "e co conf"), BASE (default quasar), RUNS (default 3) and
# LIMIT (default 400) may be set.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
tree=${1:-/tmp/trovix-search-bench/tree}
trovix=${2:-$here/../build-release/trovix}
needles=${NEEDLES:-"e co conf"}
base=${BASE:-quasar}
runs=${RUNS:-3}
limit=${LIMIT:-400}

[ -x "$trovix" ] || { echo "no trovix binary at $trovix (run scripts/build release)" >&2; exit 2; }
[ -d "$tree" ] || python3 "$here/make-tree.py" "$tree"

# Smallest peak RSS in KB over the runs.
peak() {
  best=
  i=0
  while [ "$i" -lt "$runs" ]; do
    kb=$(/usr/bin/time -f %M "$trovix" search --long --sort size "$1" "$tree" 2>&1 >/dev/null | tail -1)
    if [ -z "$best" ] || [ "$kb" -lt "$best" ]; then best=$kb; fi
    i=$((i + 1))
  done
  echo "$best"
}
count() { "$trovix" search --count "$1" "$tree" | sed 's:Found \([0-9]*\).*:\1:'; }

kb_base=$(peak "$base")
n_base=$(count "$base")
echo "base \"$base\": $n_base results, peak $kb_base KB"
status=0
for needle in $needles; do
  kb=$(peak "$needle")
  n=$(count "$needle")
  per=$(( (kb - kb_base) * 1024 / (n - n_base) ))
  verdict=ok
  if [ "$per" -gt "$limit" ]; then verdict="OVER $limit"; status=1; fi
  printf '  %-8s %8d results  peak %7d KB  %4d bytes per result  %s\n' "\"$needle\"" "$n" "$kb" "$per" "$verdict"
done
exit "$status"
