#!/bin/sh
# The open window of a real file manager follows the hidden-files switch: on an X server with a window
# manager, in the file manager's own desktop (XDG_CURRENT_DESKTOP), a window shows a folder holding
# .dotfile and plain.txt; "trovix hidden show" must change it (the dot-file appears) and "trovix hidden
# hide" must bring back exactly the pixels it had. A file manager missing here fails, naming its package.
# Usage: TestFileManagerWindows.sh FILE_MANAGER TROVIX_BINARY ARTIFACT_DIR
set -u
fm=$1
shift
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"

case $fm in
  nautilus) package=nautilus desktop=GNOME start="nautilus --new-window" ;;
  caja) package=caja desktop=MATE start="caja --no-desktop" ;;
  nemo) package=nemo desktop=X-Cinnamon start="nemo" ;;
  thunar) package=thunar desktop=XFCE start="thunar" ;;
  dolphin) package=dolphin desktop=KDE start="dolphin" ;;
  *) fail "unknown file manager $fm" ;;
esac
command -v "$fm" >/dev/null 2>&1 || fail "$fm is not installed: install the package $package (scripts/install-deps)"
export XDG_CURRENT_DESKTOP=$desktop
# No system bus here: GIO's UDisks2 volume monitor would wait for udisks forever, and GNOME Files with it
# ("Loading..." and no files). The local volume monitor only, in the file manager and in the services
# the bus starts for it.
export GVFS_REMOTE_VOLUME_MONITOR_IGNORE=1 GIO_USE_VOLUME_MONITOR=unix
dbus-update-activation-environment GVFS_REMOTE_VOLUME_MONITOR_IGNORE GIO_USE_VOLUME_MONITOR 2>/dev/null
# No GPU either: GTK 4's GL renderer on a software rasteriser, on a busy machine, can stall GNOME Files'
# first folder load for good. Its cairo renderer draws the same window.
export GSK_RENDERER=cairo

# Every process of the file manager that runs in this test's home: the one started here and any that
# Trovix started again. Ended by their ids at the end.
own_fm_pids() {
  for d in /proc/[0-9]*; do
    [ "$(cat "$d/comm" 2>/dev/null)" = "$fm" ] || continue
    tr '\0' '\n' <"$d/environ" 2>/dev/null | grep -qxF "HOME=$HOME" && echo "${d#/proc/}"
  done
}
stop_all() {
  pids=$(own_fm_pids)
  [ -n "$pids" ] && kill $pids 2>/dev/null
  stop_desktop
  [ -n "${top:-}" ] && rm -rf "$top"
}
trap stop_all EXIT

# The file manager's main window: its largest visible window.
main_window() {
  for p in $(own_fm_pids); do
    for w in $(xdotool search --onlyvisible --pid "$p" 2>/dev/null); do
      wd=$(xwininfo -id "$w" 2>/dev/null | sed -n 's/.*Width: *//p')
      [ -n "$wd" ] && [ "$wd" -gt 300 ] && echo "$wd $w"
    done
  done | sort -n | tail -n 1 | cut -d' ' -f2
}
# Caja draws its path bar a shade differently after every reload of the folder, its own Ctrl+H included:
# for Caja the picture compared is the window below the path bar, where the files are.
skip=0
[ "$fm" = caja ] && skip=110
sum() { import -window "$win" -crop +0+$skip rgb:- 2>/dev/null | md5sum | cut -d' ' -f1; }
# Waits up to $1 seconds (30) until the window has shown the same pixels for $2 half-seconds in a row (2);
# prints that checksum. A folder still loading can look finished for a moment before its spinner shows.
steady() {
  last=$(sum)
  same=0
  end=$(($(date +%s) + ${1:-30}))
  while [ "$(date +%s)" -lt "$end" ]; do
    sleep 0.5
    now=$(sum)
    if [ "$now" = "$last" ]; then same=$((same + 1)); else same=0; fi
    [ $same -ge "${2:-2}" ] && { echo "$now"; return 0; }
    last=$now
  done
  return 1
}
shot() { import -window "$win" "$artifacts/$fm-$1.png"; }

seed_settings
# The windows show the free space of the folder's disk, which the machine's other work changes by the
# second: the folder lives in memory (tmpfs) where that is possible, removed at the end. GNOME Files
# shows no free space: its folder is at home.
top=
[ "$fm" = nautilus ] || top=$(mktemp -d /dev/shm/tx.XXXXXX 2>/dev/null) || top=
[ -n "$top" ] || top=$(mktemp -d "$HOME/tx.XXXXXX")
folder="$top/Dots"
mkdir -p "$folder"
: >"$folder/.dotfile"
echo text >"$folder/plain.txt"

start_x
start_wm
# Should a first window still never come to rest (a folder load that stalled, its spinner turning), the file
# manager is given one more start.
for attempt in 1 2; do
  $start "$folder" >>"$artifacts/$fm.log" 2>&1 &
  track $!
  wait_for "the $fm window" '[ -n "$(main_window)" ]' || fail "$fm opened no window"
  win=$(main_window)
  steady 20 6 >/dev/null && break
  [ $attempt = 2 ] && { shot restless; fail "the $fm window never came to rest"; }
  echo "the first $fm window did not come to rest; starting $fm again"
  kill $(own_fm_pids) 2>/dev/null
  wait_for "$fm to end" '[ -z "$(own_fm_pids)" ]' || fail "$fm did not end"
done
xdotool windowactivate --sync "$win" >/dev/null 2>&1
case $fm in
  # Caja may leave a stale shade in the view after its first load that any later redraw wipes: the
  # picture to come back to is taken after the window was drawn again whole.
  caja) steady >/dev/null; xdotool windowminimize --sync "$win" windowactivate --sync "$win" ;;
  # When rows vanish from a Thunar view with nothing selected, Thunar selects the row that takes their
  # place (its own Ctrl+H does the same), so its window is compared with a file selected.
  thunar) steady >/dev/null; xdotool key ctrl+a ;;
esac
before=$(steady) || { shot restless; fail "the $fm window never came to rest"; }
shot before
out=$("$bin" hidden show 2>&1) || fail "trovix hidden show failed: $out"
echo "show: $out"
case $out in *" visible "*) ;; *) fail "trovix hidden show did not report the files visible: $out" ;; esac
wait_for "the window to change" '[ "$(sum)" != "$before" ]' || { shot show-unchanged; fail "the $fm window did not change"; }
shown=$(steady) || fail "the $fm window did not come to rest after show"
[ "$shown" != "$before" ] || fail "the $fm window went back by itself"
shot shown
# The window stays as it is: no second switch happened behind the first.
sleep 1
[ "$(sum)" = "$shown" ] || { shot shown-later; fail "the $fm window changed again after show"; }

out=$("$bin" hidden hide 2>&1) || fail "trovix hidden hide failed: $out"
echo "hide: $out"
case $out in *" invisible "*) ;; *) fail "trovix hidden hide did not report the files invisible: $out" ;; esac
if ! E2E_WAIT=15 wait_for "the window to look as before" '[ "$(sum)" = "$before" ]'; then
  shot hidden-differs
  compare -metric AE "$artifacts/$fm-before.png" "$artifacts/$fm-hidden-differs.png" "$artifacts/$fm-diff.png" 2>&1
  echo
  fail "after hide the $fm window does not look as before"
fi
shot hidden
echo "1 passed, 0 failed"
