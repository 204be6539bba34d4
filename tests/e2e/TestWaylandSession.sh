#!/bin/sh
# A Wayland session with XWayland (as GNOME's default): a headless Wayland compositor runs beside the X
# server and the tray host, XDG_SESSION_TYPE=wayland and WAYLAND_DISPLAY are set and QT_QPA_PLATFORM is
# not. The icon still docks in the X tray, and the panel opens under it.
# Usage: TestWaylandSession.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
seed_settings

start_desktop
socket="trovix-e2e-$$"
weston --backend=headless-backend.so --socket="$socket" --idle-time=0 >"$artifacts/weston.log" 2>&1 &
track $!
wait_for "weston" '[ -S "$XDG_RUNTIME_DIR/$socket" ]' || fail "the Wayland compositor did not start"
export WAYLAND_DISPLAY="$socket" XDG_SESSION_TYPE=wayland
unset QT_QPA_PLATFORM

start_trovix
wait_icon "the icon did not dock in the X tray"
click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open on the X display"
set -- $(panel)
[ "$3" -gt "$iy" ] && [ "$3" -lt $(( iy + 40 )) ] || fail "panel at y=$3 is not under the icon at y=$iy"
[ $(( $2 + $4 / 2 - ix )) -le 160 ] && [ $(( ix - $2 - $4 / 2 )) -le 160 ] || fail "panel at x=$2 is not under the icon at x=$ix"
screenshot "$artifacts/panel.png"
echo "panel at $2,$3 under the icon at $ix,$iy"

kill $trovix
echo "1 passed, 0 failed"
