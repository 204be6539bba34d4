#!/bin/sh
# The panel's closing rules under a real window manager (openbox): an attached panel closes when another
# program's window becomes active; it stays while a sheet hangs on it and while a file-manager script
# of ours is about to take the focus; a detached (dragged) panel stays.
# Usage: TestClosingRules.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
export XDG_CURRENT_DESKTOP=GNOME
gsettings set org.gtk.gtk4.Settings.FileChooser show-hidden false || fail "no GTK 4 schema"

# Windows of the program that are neither the panel nor the tray icon (sheets, dialogs).
sheet() {
  for w in $(xdotool search --onlyvisible --class trovix 2>/dev/null); do
    wd=$(xwininfo -id "$w" 2>/dev/null | sed -n 's/.*Width: *//p')
    [ -n "$wd" ] && [ "$wd" -gt 64 ] && [ "$wd" -ne 320 ] && { echo "$w"; return; }
  done
}
other_program() { xdotool windowactivate --sync "$other" >/dev/null 2>&1; }
# The panel is still there after the other program has had the focus for a while.
stays() { sleep 1.5; [ -n "$(panel)" ]; }
open_panel() {
  click_at $ix $iy
  wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
  set -- $(panel)
  px=$2; py=$3; pw=$4
}

start_desktop
start_wm
xmessage -geometry 300x80+80+420 "another program" >/dev/null 2>&1 &
track $!
wait_for "another program" '[ -n "$(xdotool search --onlyvisible --class xmessage 2>/dev/null)" ]' || fail "no xmessage"
other=$(xdotool search --onlyvisible --class xmessage | head -n 1)

# 1. Attached: closes when another program's window becomes active.
seed_settings
start_trovix
wait_icon
open_panel
other_program
wait_for "attached panel to close" '[ -z "$(panel)" ]' || fail "the attached panel stayed when another program became active"
echo "attached panel closed when another program became active"

# 1b. The focus went from the panel to another window of the program (the about window) and from
# there to another program: the panel did not lose the focus last, yet it closes.
open_panel
click_at $(( px + pw - 37 )) $(( py + 41 ))   # the gear button
sleep 0.5
xdotool key Up Up Return                       # the menu's "About Trovix"
wait_for "about window" '[ -n "$(sheet)" ]' || fail "the about window did not open"
about=$(sheet)
[ -n "$(panel)" ] || fail "the panel closed when the program's own about window took the focus"
other_program
wait_for "panel to close" '[ -z "$(panel)" ]' \
  || fail "the attached panel stayed when another program became active after the about window"
echo "attached panel closed when another program became active after the about window"
xdotool windowclose "$about" 2>/dev/null || xdotool windowunmap "$about"
wait_for "about window to close" '[ -z "$(sheet)" ]' || fail "the about window did not close"

# 2. A sheet on the panel (the first switch explains the file manager's questions): the panel stays.
open_panel
click_at $(( px + pw - 47 )) $(( py + 75 ))
wait_for "sheet" '[ -n "$(sheet)" ]' || fail "no sheet opened on the panel"
screenshot "$artifacts/sheet.png"
other_program
stays || fail "the panel closed while a sheet hung on it"
echo "panel with a sheet stayed"
xdotool windowactivate --sync "$(sheet)" key Escape
wait_for "sheet to close" '[ -z "$(sheet)" ]' || fail "the sheet did not close"
other_program
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "the panel stayed after its sheet had gone"

# 3. Detached by a drag: stays.
open_panel
xdotool mousemove $(( px + 150 )) $(( py + 22 )) mousedown 1
for step in 1 2 3 4 5 6 7 8; do xdotool mousemove $(( px + 150 - step * 25 )) $(( py + 22 + step * 30 )); sleep 0.05; done
xdotool mouseup 1
wait_for "panel to move" 'set -- $(panel) x; [ "${3:-0}" -gt $(( py + 100 )) ]' || fail "the drag did not move the panel: $(panel)"
screenshot "$artifacts/detached.png"
other_program
stays || fail "the detached panel closed when another program became active"
echo "detached panel stayed"
kill $trovix
wait $trovix 2>/dev/null

# 4. A script that will take the focus (the switch) is running: the attached panel stays meanwhile.
seed_settings '"ShowInformationAboutAccessibilityAlerts": false, "CheckHiddenFilesVisibility": true'
scripts="$XDG_DATA_HOME/trovix/Scripts"
mkdir -p "$scripts"
printf '#!/bin/sh\nsleep 4\nexit 0\n' >"$scripts/SwitchHiddenFilesVisibility2.sh"
start_trovix
wait_icon
open_panel
click_at $(( px + pw - 47 )) $(( py + 75 ))
sleep 0.3
other_program
stays || fail "the panel closed while the switch's script ran"
echo "panel stayed while the switch's script ran"
sleep 3   # the script ends and gives the focus back
other_program
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "the panel stayed after the script had ended"

kill $trovix
echo "1 passed, 0 failed"
