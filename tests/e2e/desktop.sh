# Helpers for end-to-end tests on a real X server with a real tray host. Source it; every process it
# starts is recorded and stopped by its own id in stop_desktop.
# Needs: Xvfb, trayer, xdotool, xwininfo, import (ImageMagick).

E2E_PIDS=""

# The common start of a test script (usage: SCRIPT TROVIX_BINARY ARTIFACT_DIR): sets bin and artifacts,
# stops the desktop on exit, and gives fail, panel and a settings seeder.
e2e_begin() {
  bin=$1
  artifacts=$2
  mkdir -p "$artifacts"
  : >"$artifacts/trovix.log"
  trap stop_desktop EXIT
  trap "exit 1" INT TERM
}
fail() { echo "FAIL: $*"; exit 1; }
panel() { windows_named Trovix | awk '$4 == 320'; }
# Writes the program's settings: no welcome dialog, no install offer, plus the JSON members given.
seed_settings() {
  mkdir -p "$XDG_CONFIG_HOME/trovix"
  printf '{ "KEY_welcomeDialogDisplayed": true, "suppressAlertMoveHalvexToApplications": true%s }\n' \
    "${1:+, $1}" >"$XDG_CONFIG_HOME/trovix/com.quorbel.trovix.json"
}

# Starts the program (with ARGS) logging into the artifacts (each start adds to the log); its pid is $trovix.
start_trovix() {
  "$bin" "$@" >>"$artifacts/trovix.log" 2>&1 &
  trovix=$!
  track $trovix
}
# Waits for the tray icon (failing with MESSAGE) and sets icon_id and the icon's centre ix, iy.
wait_icon() {
  wait_for "tray icon" '[ -n "$(tray_icon Trovix)" ]' || fail "${1:-no tray icon appeared}"
  set -- $(tray_icon Trovix)
  icon_id=$1; ix=$(( $2 + $4 / 2 )); iy=$(( $3 + $5 / 2 ))
}

start_desktop() {
  start_x
  start_tray
}

# An X server alone (no tray, no window manager).
start_x() {
  # -displayfd lets the server pick a free display number, so parallel tests never collide.
  fifo=$(mktemp -u)
  mkfifo "$fifo"
  # -noreset: with no client left (a program killed and started again) the server would reset, and a
  # client connecting meanwhile is turned away.
  Xvfb -displayfd 3 -screen 0 1024x700x24 -nolisten tcp -noreset 3>"$fifo" >/dev/null 2>&1 &
  E2E_PIDS="$E2E_PIDS $!"
  read -r num <"$fifo"
  rm -f "$fifo"
  export DISPLAY=":$num"
  unset QT_QPA_PLATFORM
}

# The tray host, on the right of a strip at the top (TRAY_EDGE=bottom for the other end).
start_tray() {
  trayer --edge "${TRAY_EDGE:-top}" --align right --widthtype request --height 28 --SetDockType true \
    --transparent false --tint 0x2b2b2b >/dev/null 2>&1 &
  E2E_PIDS="$E2E_PIDS $!"
  wait_for "trayer" 'xdotool search --class trayer >/dev/null 2>&1'
}

# A real window manager, so that focus moves between programs as on a desktop.
start_wm() {
  openbox --sm-disable >/dev/null 2>&1 &
  E2E_PIDS="$E2E_PIDS $!"
  wait_for "openbox" 'xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q window'
}

# The program's settings file and one value of it (JSON), read by another process.
settings_file() { echo "$XDG_CONFIG_HOME/trovix/com.quorbel.trovix.json"; }
setting() {
  /usr/bin/python3 -c 'import json,sys; v=json.load(open(sys.argv[1])).get(sys.argv[2]); print("" if v is None else json.dumps(v))' \
    "$(settings_file)" "$1"
}

stop_desktop() {
  for pid in $E2E_PIDS; do kill "$pid" 2>/dev/null; done
  for pid in $E2E_PIDS; do wait "$pid" 2>/dev/null; done
  E2E_PIDS=""
}

# Records a process started by the test so stop_desktop ends it.
track() { E2E_PIDS="$E2E_PIDS $1"; }

# wait_for WHAT 'CONDITION': evaluates the shell condition every 0.1 s until it holds, for up to E2E_WAIT
# seconds (30 by default: long enough for a loaded machine, so that only a real fault fails).
wait_for() {
  what=$1; cond=$2
  end=$(($(date +%s) + ${E2E_WAIT:-30}))
  while :; do
    eval "$cond" && return 0
    [ "$(date +%s)" -lt "$end" ] || break
    sleep 0.1
  done
  echo "timed out waiting for $what" >&2
  return 1
}

# Prints "id x y width height" of the program's visible windows titled exactly NAME, one per line.
# (Searched by class: xdotool's name search misses embedded tray icons.)
windows_named() {
  for w in $(xdotool search --onlyvisible --class "${E2E_CLASS:-trovix}" 2>/dev/null); do
    [ "$(xdotool getwindowname "$w" 2>/dev/null)" = "$1" ] || continue
    geo=$(xwininfo -id "$w" 2>/dev/null) || continue
    x=$(echo "$geo" | sed -n 's/.*Absolute upper-left X: *//p')
    y=$(echo "$geo" | sed -n 's/.*Absolute upper-left Y: *//p')
    wd=$(echo "$geo" | sed -n 's/.*Width: *//p')
    ht=$(echo "$geo" | sed -n 's/.*Height: *//p')
    echo "$w $x $y $wd $ht"
  done
}

# The tray icon: the small window named after the program inside the tray.
tray_icon() { windows_named "$1" | awk '$4 <= 64 && $5 <= 64 { print; exit }'; }

click_at() { xdotool mousemove "$1" "$2" click 1; }

screenshot() { import -window root "$1"; }
