#!/bin/sh
# The panel under a light palette (Qt's own) and a dark one (a KDE colour scheme, as Breeze Dark gives),
# with the hidden-files switch off and on: screenshots panel-light-off.png, panel-light-on.png,
# panel-dark-off.png and panel-dark-on.png in the artifacts. The switch's on state is filled with the
# palette's highlight colour in both.
# The file-manager side is played by two small scripts in the user's script folder (a state file), so
# that only the panel is looked at here.
# Usage: TestPanelPalettes.sh TROVIX_BINARY ARTIFACT_DIR
set -u
. "$(dirname "$0")/desktop.sh"
e2e_begin "$@"
scripts="$XDG_DATA_HOME/trovix/Scripts"
mkdir -p "$scripts"
state="$HOME/hidden-shown"
cat >"$scripts/CheckHiddenFilesFisibilityByAskingFinder.sh" <<SH
#!/bin/sh
[ "\$(cat "$state" 2>/dev/null)" = true ] && echo .profile
echo Documents
SH
cat >"$scripts/SwitchHiddenFilesVisibility2.sh" <<SH
#!/bin/sh
if [ "\$(cat "$state" 2>/dev/null)" = true ]; then echo false >"$state"; else echo true >"$state"; fi
SH

# The panel's part of the screen.
shoot_panel() { import -window root png:- | convert - -crop "${pw}x${ph}+${px}+${py}" +repage "$1"; }
# "R,G,B" of one pixel of a PNG.
pixel() { convert "$1" -crop "1x1+$2+$3" -format '%[fx:int(255*r+.5)],%[fx:int(255*g+.5)],%[fx:int(255*b+.5)]' info:; }
# The best contrast (WCAG ratio) of any pixel of a region against the region's commonest colour, its
# background: how well what is drawn there can be read. readable PNG WxH+X+Y.
readable() {
  convert "$1" -crop "$2" +repage -depth 8 rgb:- | /usr/bin/python3 -c '
import collections, sys
data = sys.stdin.buffer.read()
px = [tuple(data[i:i + 3]) for i in range(0, len(data) - 2, 3)]
def lum(c):
    f = [v / 255 for v in c]
    f = [v / 12.92 if v <= 0.03928 else ((v + 0.055) / 1.055) ** 2.4 for v in f]
    return 0.2126 * f[0] + 0.7152 * f[1] + 0.0722 * f[2]
bg = lum(collections.Counter(px).most_common(1)[0][0])
print("%.1f" % max((max(lum(c), bg) + 0.05) / (min(lum(c), bg) + 0.05) for c in px))'
}
# at_least RATIO MIN
at_least() { /usr/bin/python3 -c 'import sys; sys.exit(0 if float(sys.argv[1]) >= float(sys.argv[2]) else 1)' "$1" "$2"; }
near() { # near "R,G,B" "R,G,B": each channel within 40
  /usr/bin/python3 -c 'import sys; a,b=[list(map(int,s.split(","))) for s in sys.argv[1:3]]; sys.exit(0 if all(abs(x-y)<=40 for x,y in zip(a,b)) else 1)' "$1" "$2"
}

start_desktop
for scheme in light dark; do
  echo false >"$state"
  seed_settings '"PanelWindowSateIsDetailed": true, "ShowInformationAboutAccessibilityAlerts": false, "CheckHiddenFilesVisibility": true'
  if [ $scheme = dark ]; then
    # Qt's KDE theme reads the colour scheme from kdeglobals.
    cat >"$XDG_CONFIG_HOME/kdeglobals" <<'INI'
[Colors:Button]
BackgroundNormal=49,54,59
ForegroundNormal=239,240,241
[Colors:View]
BackgroundNormal=35,38,41
ForegroundNormal=239,240,241
[Colors:Window]
BackgroundNormal=49,54,59
ForegroundNormal=239,240,241
[Colors:Selection]
BackgroundNormal=61,174,233
ForegroundNormal=252,252,252
[Colors:Tooltip]
BackgroundNormal=49,54,59
ForegroundNormal=239,240,241
INI
    export XDG_CURRENT_DESKTOP=KDE KDE_SESSION_VERSION=5
    highlight=61,174,233
  else
    highlight=48,140,198   # Qt's Fusion palette
  fi
  start_trovix
  wait_icon "no tray icon appeared ($scheme)"
  click_at $ix $iy
  wait_for "panel" '[ -n "$(panel)" ]' || fail "the panel did not open ($scheme)"
  set -- $(panel)
  px=$2; py=$3; pw=$4; ph=$5
  sx=$(( px + pw - 47 )); sy=$(( py + 75 ))
  xdotool mousemove $(( px + 20 )) $(( py + ph + 40 ))
  sleep 1.5   # a memory sample and the first state read
  shoot_panel "$artifacts/panel-$scheme-off.png"
  # The track where the knob is not: right of centre when off, left of it when on.
  off=$(pixel "$artifacts/panel-$scheme-off.png" $(( sx - px + 10 )) $(( sy - py )))
  click_at $sx $sy
  wait_for "switch on" '[ "$(cat "$state")" = true ]' || fail "the switch did not run ($scheme)"
  xdotool mousemove $(( px + 20 )) $(( py + ph + 40 ))
  sleep 1.5
  shoot_panel "$artifacts/panel-$scheme-on.png"
  on=$(pixel "$artifacts/panel-$scheme-on.png" $(( sx - px - 14 )) $(( sy - py )))
  echo "$scheme: switch track off $off, on $on (highlight $highlight)"
  # The clean button's title, the search field's placeholder and the gear, in the panel's picture.
  for part in "clean-button 70x16+125+218" "placeholder 120x14+55+100" "gear 16x16+275+33"; do
    set -- $part
    ratio=$(readable "$artifacts/panel-$scheme-off.png" "$2")
    echo "$scheme: $1 contrast $ratio"
    at_least "$ratio" 3 || fail "the $1 does not read on the $scheme palette (contrast $ratio)"
  done
  near "$on" "$highlight" || fail "the switch's on state ($on) is not the highlight colour $highlight ($scheme)"
  near "$off" "$highlight" && fail "the switch's off state looks like its on state ($scheme)"
  kill $trovix
  wait $trovix 2>/dev/null
done
echo "1 passed, 0 failed"
