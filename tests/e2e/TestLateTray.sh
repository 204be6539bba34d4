#!/bin/sh
# Trovix started before the desktop's tray host (an autostart at login): the panel opens as a window at
# once, the tray host started 4 s later gets the icon within 20 s, and the window fallback stored no
# change of the panel's lock state, so a click on the new icon opens it attached under the icon.
# Usage: TestLateTray.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings

start_x
start_trovix
wait_for "panel as a window" '[ -n "$(panel)" ]' || fail "without a tray the panel did not open as a window"
screenshot "$artifacts/no-tray.png"
sleep 4
start_tray
started=$(date +%s)
E2E_WAIT=20 wait_icon "no icon 20 s after the tray host started"
echo "icon docked $(( $(date +%s) - started )) s after the tray host started"
[ -z "$(setting main_window:state:lock)" ] || fail "the window fallback stored the lock state: $(setting main_window:state:lock)"

# The window stays until the user clicks the icon, which re-attaches the panel under it.
click_at $ix $iy
wait_for "panel under the icon" 'set -- $(panel) x; [ "${3:-0}" -gt "$iy" ] && [ "${3:-999}" -lt 60 ]' \
  || fail "the panel is not under the icon: $(panel)"
screenshot "$artifacts/attached.png"
[ "$(setting main_window:state:lock)" != false ] || fail "attaching stored the panel as detached"

kill $trovix
echo "1 passed, 0 failed"
