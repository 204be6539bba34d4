#!/bin/sh
# Dragging the panel under a window manager stores its place once, when the drag ends, and that write
# keeps a key another process put into the settings file while the tray program ran.
# Usage: TestDragKeepsSettings.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings

start_desktop
start_wm
start_trovix
wait_icon
click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
set -- $(panel)
px=$2; py=$3

# Another process (as "trovix hidden" would) adds a key while the tray program runs.
/usr/bin/python3 - "$(settings_file)" <<'PY'
import json, os, sys
path = sys.argv[1]
values = json.load(open(path))
values["WrittenByAnotherProcess"] = "still here"
with open(path + ".tmp", "w") as f:
    json.dump(values, f)
os.replace(path + ".tmp", path)
PY

/usr/bin/python3 "$(dirname "$0")/count-writes.py" "$(settings_file)" "$artifacts/writes" &
counter=$!
track $counter
wait_for "write counter" '[ -s "$artifacts/writes" ]' || fail "the write counter did not start"
xdotool mousemove $(( px + 150 )) $(( py + 22 )) mousedown 1
for step in $(seq 1 20); do xdotool mousemove $(( px + 150 - step * 12 )) $(( py + 22 + step * 15 )); sleep 0.03; done
xdotool mouseup 1
wait_for "stored place" '[ -n "$(setting main_window:state:y)" ]' || fail "the place was not stored after the drag"
sleep 1   # no further writes come
set -- $(panel)
echo "panel dragged from $px,$py to $2,$3; $(cat "$artifacts/writes") writes of the settings file"
[ "$(setting WrittenByAnotherProcess)" = '"still here"' ] || fail "the drag's write lost the other process's key"
[ "$(setting main_window:state:lock)" = false ] || fail "the drag did not store the panel as detached"
x=$(setting main_window:state:x); y=$(setting main_window:state:y)
[ "${x%.*}" -eq "$2" ] && [ "${y%.*}" -eq "$3" ] || fail "stored place $x,$y is not the panel's $2,$3"
# One write detaches the panel, one stores its place (both coordinates) at the drag's end.
[ "$(cat "$artifacts/writes")" -le 2 ] || fail "the drag wrote the settings file $(cat "$artifacts/writes") times"

kill $trovix
echo "1 passed, 0 failed"
