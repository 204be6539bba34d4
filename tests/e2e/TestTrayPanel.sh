#!/bin/sh
# Starts Trovix under a real X server with a tray host, clicks its tray icon, and checks that the panel
# is mapped under the icon, that it shows the switch, the search field and memory figures, that a
# second click closes it and that a second copy quits and brings the panel forward.
# Usage: TestTrayPanel.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"

# First start without the welcome dialog and the install offer, with the memory part open.
seed_settings '"PanelWindowSateIsDetailed": true'

start_desktop
start_trovix
wait_icon
sleep 0.5
screenshot "$artifacts/tray.png"

click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
set -- $(panel)
px=$2; py=$3; pw=$4
[ "$py" -ge "$iy" ] || fail "panel at y=$py is not under the icon at y=$iy"
[ $(( px + pw )) -le 1024 ] || fail "panel runs off the screen (x=$px)"
sleep 1.5   # one memory sample
screenshot "$artifacts/panel.png"
echo "panel at $px,$py under the icon at $ix,$iy"

# A second copy asks the first to bring its panel forward and quits.
click_at $ix $iy
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "a second click did not close the panel"
"$bin" >"$artifacts/second.log" 2>&1
[ $? -eq 0 ] || fail "the second copy failed"
kill -0 $trovix 2>/dev/null || fail "the first copy died"
wait_for "panel after second launch" '[ -n "$(panel)" ]' \
  || fail "the second launch did not bring the panel forward"
screenshot "$artifacts/second-launch.png"

kill $trovix
echo "1 passed, 0 failed"
