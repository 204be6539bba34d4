#!/bin/sh
# Name index benchmark: the tray program indexes TREE (given to it as its home folder), then
#  - build time, entries, memory and bytes per entry beyond the names, resident size;
#  - query time inside the program (its own clock) for a needle with many matches, one with few and
#    one with none, and through the command line with hyperfine: `trovix search --index` against
#    plocate over its own database of the same tree and against the walk (`trovix search`);
#  - the delay from creating a file to `trovix search --index` finding it, and from deleting it to
#    its absence, at the root and in PROBES (default 20) folders picked at random in the tree (beyond
#    the inotify watches these are covered by fanotify marks or by sweeps);
#  - the CPU time the idle tray program uses over 30 s (its index kept current, nothing changing).
# TROVIX_INDEX_WATCHES / TROVIX_INDEX_MARKS limit the inotify watches / fanotify marks the index may
# use (by default up to 3/4 of the user's limits; TROVIX_INDEX_MARKS=0: the folders beyond the watches
# are swept; with TROVIX_INDEX_WATCHES=0 as well: sweeps only).
# Same results from all three are checked first. The machine may be loaded: figures are indicative.
#
#     bench/index.sh [TREE] [TROVIX]
#
# TREE defaults to /tmp/trovix-search-bench/tree (made with bench/make-tree.py when absent; left in
# place: only a probe file is created and removed in it); TROVIX to build-release/trovix. Needs Xvfb,
# dbus-run-session, hyperfine and plocate (updatedb). RUNS (default 10) and NEEDLES (default "report
# quasar zzqqxx") may be set.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "${1:-/tmp/trovix-search-bench/tree}" 2>/dev/null && pwd || echo "${1:-/tmp/trovix-search-bench/tree}")
trovix=${2:-$here/../build-release/trovix}
[ -x "$trovix" ] || { echo "no trovix binary at $trovix (run scripts/build release)" >&2; exit 2; }
[ -d "$tree" ] || python3 "$here/make-tree.py" "$tree"

if [ -z "${TROVIX_BENCH_INSIDE:-}" ]; then
  TROVIX_BENCH_INSIDE=1 exec dbus-run-session -- "$0" "$tree" "$trovix"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/trovix-index-bench.XXXXXX")
pids=""
cleanup() {
  for pid in $pids; do kill "$pid" 2>/dev/null || true; done
  rm -f "$tree/.trovix-bench-probe"
  [ -f "$work/probes" ] && while IFS= read -r probe; do rm -f "$probe"; done <"$work/probes"
  rm -rf "$work"
}
trap cleanup EXIT INT TERM
export HOME="$tree" XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" XDG_CACHE_HOME="$work/cache"
export XDG_RUNTIME_DIR="$work/run"
mkdir -p "$XDG_CONFIG_HOME/trovix" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
printf '{ "KEY_welcomeDialogDisplayed": true, "suppressAlertMoveHalvexToApplications": true }\n' \
  >"$XDG_CONFIG_HOME/trovix/com.quorbel.trovix.json"
ms() { echo $(( ($(date +%s%N) - $1) / 1000000 )); }

fifo="$work/display"
mkfifo "$fifo"
Xvfb -displayfd 3 -screen 0 1024x700x24 -nolisten tcp 3>"$fifo" >/dev/null 2>&1 &
pids="$pids $!"
read -r display <"$fifo"
export DISPLAY=":$display"
unset QT_QPA_PLATFORM

start=$(date +%s%N)
"$trovix" >"$work/trovix.log" 2>&1 &
tray=$!
pids="$pids $tray"
until "$trovix" index >/dev/null 2>&1; do
  kill -0 $tray 2>/dev/null || { echo "the tray program ended:"; cat "$work/trovix.log"; exit 1; }
  sleep 0.1
done
echo "== index of $tree ready $(ms "$start") ms after start"
"$trovix" index
echo "resident size of the tray program: $(ps -o rss= -p $tray) KiB"

start=$(date +%s%N)
updatedb -o "$work/plocate.db" -U "$tree" --prunepaths '' --prunenames '' --prunefs '' --prune-bind-mounts no
echo "plocate database built in $(ms "$start") ms ($(du -k "$work/plocate.db" | cut -f1) KiB on disk)"

runs=${RUNS:-10}
for needle in ${NEEDLES:-report quasar zzqqxx}; do
  echo "== needle \"$needle\""
  "$trovix" search "$needle" "$tree" | sort >"$work/walk.txt" || true
  "$trovix" search --index "$needle" "$tree" | sort >"$work/index.txt" || true
  plocate -d "$work/plocate.db" -b -i "$needle" | grep -v "^$tree\$" | sort >"$work/plocate.txt" || true
  for tool in index plocate; do
    cmp -s "$work/walk.txt" "$work/$tool.txt" ||
      echo "DIFFERENT RESULTS: walk vs $tool ($(wc -l <"$work/walk.txt") vs $(wc -l <"$work/$tool.txt") lines)"
  done
  echo "matches: $(wc -l <"$work/walk.txt")"
  for i in 1 2 3; do "$trovix" search --index "$needle" "$tree" >/dev/null || true; done
  echo "inside the program: $("$trovix" index | grep 'last query')"
  hyperfine --warmup 2 --runs "$runs" -N -i \
    --command-name "trovix search --index" "$trovix search --index $needle $tree" \
    --command-name "plocate -b -i" "plocate -d $work/plocate.db -b -i $needle" \
    --command-name "trovix search (walk)" "$trovix search $needle $tree" 2>&1 |
    grep -E "^Benchmark|Time \(mean|faster|±"
done

echo "== changes"
for round in 1 2 3; do
  start=$(date +%s%N)
  : >"$tree/.trovix-bench-probe"
  until "$trovix" search --index .trovix-bench-probe "$tree" >/dev/null; do sleep 0.01; done
  created=$(ms "$start")
  start=$(date +%s%N)
  rm "$tree/.trovix-bench-probe"
  while "$trovix" search --index .trovix-bench-probe "$tree" >/dev/null; do sleep 0.01; done
  echo "created -> found: $created ms; deleted -> gone: $(ms "$start") ms (each including one command's start)"
done
# The delay for one file created in (then deleted from) a folder, in ms, each including one command's start.
probe() {
  name=.trovix-bench-probe-$2
  echo "$1/$name" >>"$work/probes"
  start=$(date +%s%N)
  : >"$1/$name"
  until "$trovix" search --index "$name" "$tree" >/dev/null; do sleep 0.01; done
  created=$(ms "$start")
  start=$(date +%s%N)
  rm "$1/$name"
  while "$trovix" search --index "$name" "$tree" >/dev/null; do sleep 0.01; done
  echo "$created $(ms "$start")"
}
probes=${PROBES:-20}
echo "== changes in $probes folders picked at random"
find "$tree" -mindepth 2 -type d 2>/dev/null | shuf -n "$probes" >"$work/folders"
i=0
while IFS= read -r folder; do
  i=$((i + 1))
  probe "$folder" "$i"
done <"$work/folders" >"$work/delays"
for column in 1 2; do
  what=$([ $column = 1 ] && echo "created -> found" || echo "deleted -> gone")
  cut -d' ' -f$column "$work/delays" | sort -n | awk -v what="$what" '
    { v[NR] = $1 } END { printf "%s: median %d ms, slowest %d ms (of %d folders)\n", what, v[int((NR + 1) / 2)], v[NR], NR }'
done

echo "== idle for 30 s"
ticks() { awk '{ print $14 + $15 }' "/proc/$tray/stat"; }
before=$(ticks)
sleep 30
after=$(ticks)
hz=$(getconf CLK_TCK)
awk -v t=$((after - before)) -v hz="$hz" 'BEGIN {
  printf "CPU used by the tray program: %.2f s in 30 s (%.1f %% of one core)\n", t / hz, 100 * t / hz / 30 }'

echo "== state at the end"
"$trovix" index
