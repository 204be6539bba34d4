#!/bin/sh
# The hidden-files switch end to end: under a real X server and tray host, a click on the panel's switch
# turns on GNOME Files' setting (GSettings, keyfile backend) and the tray icon and its tooltip follow; a
# change made outside Trovix (as Ctrl+H in the file manager does) shows up after the next activation.
# Usage: TestHiddenSwitch.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
key() { gsettings get org.gtk.gtk4.Settings.FileChooser show-hidden; }
# A checksum of the tray icon's pixels: the icon is the only sign of the state outside the panel.
# The tooltip: a visible window of the program that is neither the panel nor the icon; prints its width
# (its text is the only thing in it, so the width tells "visible" from the longer "invisible").
tip_width() {
  for w in $(xdotool search --onlyvisible --class "${E2E_CLASS:-trovix}" 2>/dev/null); do
    wd=$(xwininfo -id "$w" 2>/dev/null | sed -n 's/.*Width: *//p')
    [ -n "$wd" ] && [ "$wd" -gt 64 ] && [ "$wd" -ne 320 ] && { echo "$wd"; return; }
  done
}
hover_icon() { xdotool mousemove $ix $((iy + 30)) sleep 0.2 mousemove $ix $iy sleep 0.1 mousemove $((ix + 1)) $iy; }
icon_sum() { import -window "$icon_id" rgb:- 2>/dev/null | md5sum | cut -d' ' -f1; }

# The explanation was accepted before; no welcome dialog or install offer.
seed_settings '"ShowInformationAboutAccessibilityAlerts": false, "CheckHiddenFilesVisibility": true'
export XDG_CURRENT_DESKTOP=GNOME
gsettings set org.gtk.gtk4.Settings.FileChooser show-hidden false || fail "no GTK 4 schema"

start_desktop
start_trovix
wait_icon
sleep 1.5   # the first poll reads the state
hidden_sum=$(icon_sum)

click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open"
set -- $(panel)
# The switch sits at the right end of the row under the title.
sx=$(( $2 + $4 - 47 )); sy=$(( $3 + 75 ))
screenshot "$artifacts/before.png"
# Opening the panel reads the state again, and a switch asked for during that read is dropped, as a user's
# click would be: click once the program's own check has ended.
sleep 0.5
wait_for "the state check to end" '! pgrep -P $trovix -f CheckHiddenFiles >/dev/null' || fail "the state check never ended"
click_at $sx $sy
wait_for "GNOME key on" '[ "$(key)" = true ]' || fail "the switch did not turn the key on: $(key)"
wait_for "icon change" '[ "$(icon_sum)" != "$hidden_sum" ]' || fail "the tray icon did not follow"
screenshot "$artifacts/after.png"
shown_sum=$(icon_sum)

# The tooltip's second line: hover the icon and look for the tip window.
click_at $ix $iy
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "the panel did not close"
hover_icon
wait_for "tooltip" '[ -n "$(tip_width)" ]' || fail "no tooltip on the tray icon"
shown_tip=$(tip_width)
screenshot "$artifacts/tooltip-shown.png"

# Switched back from outside Trovix: the next activation re-reads the setting.
gsettings set org.gtk.gtk4.Settings.FileChooser show-hidden false
click_at $ix $iy
wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not reopen"
wait_for "icon back" '[ "$(icon_sum)" = "$hidden_sum" ]' || fail "an outside change did not reach the icon"
screenshot "$artifacts/reread.png"
click_at $ix $iy
wait_for "panel to close" '[ -z "$(panel)" ]' || fail "the panel did not close"
hover_icon
wait_for "tooltip" '[ -n "$(tip_width)" ] && [ "$(tip_width)" -gt "$shown_tip" ]' \
  || fail "the tooltip did not change to the longer 'invisible' line ($(tip_width) vs $shown_tip)"
screenshot "$artifacts/tooltip-hidden.png"
echo "tooltip width $shown_tip shown, $(tip_width) hidden"

kill $trovix
echo "1 passed, 0 failed"
