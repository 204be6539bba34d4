# The file managers' hidden-files settings, sourced by every hidden-files script from the folder it
# runs in. Not run on its own.
# trovix-backends-version: 3
# (The program replaces an installed copy whose version is lower than the one it ships.)
# Settings: gtk4 and gtk3 (GNOME Files and the GTK file choosers), nemo, caja (GSettings), thunar
# (xfconf), dolphin (its global view properties). A setting whose schema or tool is missing is skipped.
# The user's locale is kept: file managers started from here must come back in the user's language.
: "${XDG_CONFIG_HOME:=$HOME/.config}"
: "${XDG_DATA_HOME:=$HOME/.local/share}"
DOLPHIN_GLOBAL="$XDG_DATA_HOME/dolphin/view_properties/global/.directory"
GTK4=org.gtk.gtk4.Settings.FileChooser
GTK3=org.gtk.Settings.FileChooser
SETTINGS="gtk4 gtk3 nemo caja thunar dolphin"
NO_SETTING="no supported file-manager setting for hidden files was found (GSettings schemas, xfconf, kwriteconfig)"

have() { command -v "$1" >/dev/null 2>&1; }

# Plasma 6 ships only the 6 versions of the KDE config tools, Plasma 5 only the 5 ones.
kde_tool() {
  for t in "$1"6 "$1"5; do
    have "$t" && { echo "$t"; return 0; }
  done
  return 1
}

# One switch at a time across processes: the command line, the tray program and its launch-time writer
# would otherwise interleave their writes. The lock is held until the script ends.
hidden_files_lock() {
  have flock || return 0
  if [ -n "${XDG_RUNTIME_DIR:-}" ] && [ -d "$XDG_RUNTIME_DIR" ]; then
    lock="$XDG_RUNTIME_DIR/trovix-hidden.lock"
  else
    lock="${TMPDIR:-/tmp}/trovix-hidden-$(id -u).lock"
  fi
  [ -w "${lock%/*}" ] || return 0
  command exec 9>>"$lock" || return 0
  flock -w 60 9 || { echo "another hidden-files switch did not end within 60 s ($lock)" >&2; exit 1; }
}
hidden_files_lock

gs_present() { have gsettings && gsettings list-keys "$1" 2>/dev/null | grep -qx "$2"; }

setting_present() {
  case $1 in
    gtk4) gs_present $GTK4 show-hidden ;;
    gtk3) gs_present $GTK3 show-hidden ;;
    nemo) gs_present org.nemo.preferences show-hidden-files ;;
    caja) gs_present org.mate.caja.preferences show-hidden-files ;;
    # Reaching the daemon is part of being present: without it nothing can be read or written.
    thunar) have xfconf-query && xfconf-query -l >/dev/null 2>&1 ;;
    dolphin) kde_tool kwriteconfig >/dev/null && kde_tool kreadconfig >/dev/null ;;
    *) return 1 ;;
  esac
}

present_settings() {
  for s in $SETTINGS; do
    if setting_present $s; then echo $s; fi
  done
}

# Where a setting lives, as the user would look it up.
setting_name() {
  case $1 in
    gtk4) echo "$GTK4 show-hidden" ;;
    gtk3) echo "$GTK3 show-hidden" ;;
    nemo) echo "org.nemo.preferences show-hidden-files" ;;
    caja) echo "org.mate.caja.preferences show-hidden-files" ;;
    thunar) echo "xfconf thunar /last-show-hidden" ;;
    dolphin) echo "HiddenFilesShown of $DOLPHIN_GLOBAL" ;;
  esac
}

# Prints true or false.
get_value() {
  case $1 in
    gtk4) v=$(gsettings get $GTK4 show-hidden 2>/dev/null) || return 1 ;;
    gtk3) v=$(gsettings get $GTK3 show-hidden 2>/dev/null) || return 1 ;;
    nemo) v=$(gsettings get org.nemo.preferences show-hidden-files 2>/dev/null) || return 1 ;;
    caja) v=$(gsettings get org.mate.caja.preferences show-hidden-files 2>/dev/null) || return 1 ;;
    # An absent property is Thunar's default: hidden files not shown.
    thunar) v=$(xfconf-query -c thunar -p /last-show-hidden 2>/dev/null) || v=false ;;
    dolphin)
      v=$($(kde_tool kreadconfig) --file "$DOLPHIN_GLOBAL" --group Settings --key HiddenFilesShown --default false 2>/dev/null) ||
        return 1 ;;
    *) return 1 ;;
  esac
  if [ "$v" = true ]; then echo true; else echo false; fi
}

# Writes without reading back; the tool's complaints go to standard error.
set_value() {
  case $1 in
    gtk4) gsettings set $GTK4 show-hidden "$2" ;;
    gtk3) gsettings set $GTK3 show-hidden "$2" ;;
    nemo) gsettings set org.nemo.preferences show-hidden-files "$2" ;;
    caja) gsettings set org.mate.caja.preferences show-hidden-files "$2" ;;
    thunar) xfconf-query -c thunar -p /last-show-hidden -n -t bool -s "$2" ;;
    dolphin)
      mkdir -p "${DOLPHIN_GLOBAL%/*}" &&
        $(kde_tool kwriteconfig) --file "$DOLPHIN_GLOBAL" --group Settings --key HiddenFilesShown --type bool "$2" ;;
    *) return 1 ;;
  esac
}

# Writes $2 into setting $1 and reads it back. On failure prints the reason on one line: the tool's
# last complaint, or what the setting reads instead.
store_value() {
  out=$(set_value "$1" "$2" 2>&1 >/dev/null)
  rc=$?
  if [ $rc -ne 0 ]; then
    why=$(printf '%s\n' "$out" | sed '/^[[:space:]]*$/d' | tail -n 1)
    echo "${why:-the tool ended with status $rc}"
    return 1
  fi
  if ! v=$(get_value "$1"); then
    echo "it cannot be read back"
    return 1
  fi
  if [ "$v" != "$2" ]; then
    echo "it still reads $v after writing $2"
    return 1
  fi
  return 0
}

fm_from_text() {
  case $(printf '%s' "$1" | tr 'A-Z' 'a-z') in
    *nautilus*) echo nautilus ;;
    *dolphin*) echo dolphin ;;
    *thunar*) echo thunar ;;
    *nemo*) echo nemo ;;
    *caja*) echo caja ;;
    *) return 1 ;;
  esac
}

fm_title() {
  case $1 in
    nautilus) echo "GNOME Files" ;;
    dolphin) echo Dolphin ;;
    thunar) echo Thunar ;;
    nemo) echo Nemo ;;
    caja) echo Caja ;;
  esac
}

# The setting a file manager reads; GNOME Files follows GTK 4's, or GTK 3's where only that one exists.
setting_of() {
  case $1 in
    nautilus) if setting_present gtk4; then echo gtk4; else echo gtk3; fi ;;
    *) echo "$1" ;;
  esac
}

# mimeapps.list files in precedence order, one a line.
mimeapps_files() {
  desktops=$(printf '%s' "${XDG_CURRENT_DESKTOP:-}" | tr 'A-Z:' 'a-z ')
  {
    printf '%s\n' "$XDG_CONFIG_HOME"
    printf '%s\n' "${XDG_CONFIG_DIRS:-/etc/xdg}" | tr ':' '\n'
    printf '%s\n' "$XDG_DATA_HOME/applications"
    printf '%s\n' "${XDG_DATA_DIRS:-/usr/local/share:/usr/share}" | tr ':' '\n' | sed 's|$|/applications|'
  } | while IFS= read -r dir; do
    [ -n "$dir" ] || continue
    for d in $desktops; do printf '%s\n' "$dir/$d-mimeapps.list"; done
    printf '%s\n' "$dir/mimeapps.list"
  done
}

directory_handler_in() {
  mimeapps_files | while IFS= read -r f; do
    [ -r "$f" ] || continue
    awk -v want="[$1]" '
      /^[ \t]*\[/ { g = $0; sub(/^[ \t]+/, "", g); sub(/[ \t]+$/, "", g); next }
      g == want && /^[ \t]*inode\/directory[ \t]*=/ {
        v = $0; sub(/^[^=]*=[ \t]*/, "", v); split(v, a, ";")
        if (a[1] != "") { print a[1]; exit }
      }' "$f"
  done | head -n 1
}

# Process ids of this user's processes running the file manager $1.
fm_pids() {
  for d in /proc/[0-9]*; do
    [ -O "$d" ] || continue
    c=
    read -r c <"$d/comm" 2>/dev/null || continue
    [ "$c" = "$1" ] && printf '%s\n' "${d#/proc/}"
  done
}

# The user's file manager: the default handler of folders, else the desktop's own, else one that runs,
# else one that is installed.
primary_fm() {
  h=$(directory_handler_in 'Default Applications')
  [ -n "$h" ] || h=$(directory_handler_in 'Added Associations')
  fm_from_text "$h" && return 0
  for d in $(printf '%s' "${XDG_CURRENT_DESKTOP:-}" | tr 'a-z:' 'A-Z '); do
    case $d in
      GNOME | UNITY | BUDGIE) echo nautilus; return 0 ;;
      KDE) echo dolphin; return 0 ;;
      XFCE) echo thunar; return 0 ;;
      X-CINNAMON | CINNAMON) echo nemo; return 0 ;;
      MATE) echo caja; return 0 ;;
    esac
  done
  for fm in nautilus dolphin thunar nemo caja; do
    [ -n "$(fm_pids $fm)" ] && { echo $fm; return 0; }
  done
  for fm in nautilus dolphin thunar nemo caja; do
    have $fm && { echo $fm; return 0; }
  done
  return 1
}

# The setting that tells the current state: the primary file manager's, else the first one present.
state_setting() {
  if fm=$(primary_fm); then
    s=$(setting_of "$fm")
    setting_present "$s" && { echo "$s"; return 0; }
  fi
  s=$(present_settings | head -n 1)
  [ -n "$s" ] && { echo "$s"; return 0; }
  echo "$NO_SETTING" >&2
  return 1
}

current_value() {
  s=$(state_setting) || return 1
  get_value "$s" || { echo "cannot read the hidden-files setting $(setting_name "$s")" >&2; return 1; }
}

# Writes the value to every setting present, the primary one first, and reads each back. Fails with
# one line on standard error when the primary one does not take it; nothing else has been written
# then, and the primary one is given its old value again. The others are best effort.
store_all() {
  primary=$(state_setting) || return 1
  old=$(get_value "$primary") || old=
  if ! why=$(store_value "$primary" "$1"); then
    [ -z "$old" ] || set_value "$primary" "$old" >/dev/null 2>&1
    owner=
    if fm=$(primary_fm) && [ "$(setting_of "$fm")" = "$primary" ]; then owner=" of $(fm_title "$fm")"; fi
    echo "cannot store the hidden-files setting$owner ($(setting_name "$primary")): $why" >&2
    return 1
  fi
  for s in $(present_settings); do
    [ "$s" = "$primary" ] && continue
    why=$(store_value "$s" "$1") || echo "not stored: $(setting_name "$s"): $why" >&2
  done
  return 0
}

# Stores the value in every setting (as store_all) and makes the open windows of the running file
# managers show it. Fails, naming the file managers, when some open windows could not be switched: the
# settings are written then, but the display is not what was asked for everywhere.
write_all() {
  # What Nemo's and Thunar's windows show before the switch: what their setting held.
  before=
  for fm in nemo thunar; do
    [ -n "$(fm_pids $fm)" ] && setting_present $fm && before="$before $fm=$(get_value $fm)"
  done
  store_all "$1" || return 1
  follow_open_windows "$1" "$before"
}

# How each file manager's open windows come to show a new value:
# - GNOME Files and Caja follow their GSettings key live: nothing to do.
# - Dolphin: each window exports its actions on the session bus; the show_hidden_files action is
#   checked when the window shows hidden files, and triggering it switches that window at once, under
#   X11 and Wayland alike. It is triggered only in windows that show the other state.
# - Nemo and Thunar export nothing for it; each window keeps its own state, and their own shortcut,
#   Ctrl+H, toggles the focused window and writes its new state into their setting. Under X11 the key
#   goes to each window whose state differs, and the setting then tells what the window shows. Where
#   their windows are not X11 ones (Wayland) or xdotool is missing, they are relaunched, as the
#   relaunch switch does.
# $2: " nemo=VALUE thunar=VALUE" for those that run, their setting before the switch. (Shell functions
# share their variables: each helper below keeps a status of its own name.)
follow_open_windows() {
  failed=
  if [ -n "$(fm_pids dolphin)" ]; then
    why=$(follow_dolphin "$1" 2>&1) || failed="$failed; Dolphin: $why"
  fi
  for fm in nemo thunar; do
    case $2 in *" $fm="*) ;; *) continue ;; esac
    was=${2##*" $fm="}
    was=${was%% *}
    why=$(follow_by_key "$fm" "$1" "$was" 2>&1) || failed="$failed; $(fm_title $fm): $why"
  done
  [ -z "$failed" ] && return 0
  if [ "$1" = true ]; then what=show; else what=hide; fi
  echo "the setting is stored, but open windows do not $what hidden files${failed#;}" | tr '\n' ' ' >&2
  echo >&2
  return 1
}

# Dolphin's windows of process $1: their object paths on the bus, one a line.
dolphin_windows() {
  gdbus introspect --session -d "org.kde.dolphin-$1" -o /dolphin 2>/dev/null |
    sed -n 's|^[[:space:]]*node \(Dolphin_[0-9][0-9]*\) .*|/dolphin/\1|p'
}

# true or false: whether Dolphin's window $2 (process $1) shows hidden files.
dolphin_checked() {
  r=$(gdbus call --session -d "org.kde.dolphin-$1" -o "$2/actions/show_hidden_files" \
    -m org.freedesktop.DBus.Properties.Get org.qtproject.Qt.QAction checked 2>/dev/null) || return 1
  case $r in *true*) echo true ;; *false*) echo false ;; *) return 1 ;; esac
}

follow_dolphin() {
  dolphin_rc=0
  for pid in $(fm_pids dolphin); do
    wins=
    have gdbus && wins=$(dolphin_windows "$pid")
    if [ -z "$wins" ]; then
      # Not on this bus (or no gdbus): only a new start reads the setting.
      relaunch_fm dolphin || return 1
      return $dolphin_rc
    fi
    for w in $wins; do
      state=$(dolphin_checked "$pid" "$w") || { echo "window $w cannot be asked"; dolphin_rc=1; continue; }
      [ "$state" = "$1" ] && continue
      gdbus call --session -d "org.kde.dolphin-$pid" -o "$w/actions/show_hidden_files" \
        -m org.qtproject.Qt.QAction.trigger >/dev/null 2>&1
      state=$(dolphin_checked "$pid" "$w")
      [ "$state" = "$1" ] || { echo "window $w did not switch"; dolphin_rc=1; }
    done
  done
  return $dolphin_rc
}

# Whether process $1 draws its windows through X11: a GTK program prefers Wayland when it has one.
x11_client() {
  envs=$(tr '\0' '\n' <"/proc/$1/environ" 2>/dev/null) || return 1
  case "$envs" in *"GDK_BACKEND=x11"*) return 0 ;; esac
  printf '%s\n' "$envs" | grep -q '^WAYLAND_DISPLAY=.' && return 1
  printf '%s\n' "$envs" | grep -q '^DISPLAY=.'
}

# The file manager's own windows of process $1 on our X display: normal top-level windows, shown or
# minimised (not dialogs, not the hidden leader window).
x11_windows() {
  for w in $(xdotool search --pid "$1" 2>/dev/null); do
    props=$(xprop -id "$w" _NET_WM_WINDOW_TYPE WM_TRANSIENT_FOR WM_STATE 2>/dev/null) || continue
    case $props in *"WM_TRANSIENT_FOR(WINDOW)"*) continue ;; esac
    case $props in *"_NET_WM_WINDOW_TYPE(ATOM)"*) case $props in *_NET_WM_WINDOW_TYPE_NORMAL*) ;; *) continue ;; esac ;; esac
    # Shown windows are viewable; minimised ones carry the window manager's Iconic state.
    case $props in *"window state: Iconic"*) echo "$w iconic"; continue ;; esac
    xwininfo -id "$w" 2>/dev/null | grep -q 'Map State: IsViewable' && echo "$w shown"
  done
}

# Focus goes to $1 the way the desktop moves it: through the window manager when there is one.
x11_focus() {
  if xprop -root _NET_ACTIVE_WINDOW 2>/dev/null | grep -q 'window id'; then
    xdotool windowactivate --sync "$1" >/dev/null 2>&1
  else
    xdotool windowfocus --sync "$1" >/dev/null 2>&1
  fi
}

# Waits up to 3 s for setting $1 to read $2.
await_value() {
  n=0
  while [ "$(get_value "$1")" != "$2" ]; do
    n=$((n + 1))
    [ $n -ge 30 ] && return 1
    sleep 0.1
  done
}

# Switches the windows of Nemo or Thunar ($1) to $2 with their Ctrl+H; $3: their setting before the
# switch, which is what windows show that nobody toggled since they opened.
follow_by_key() {
  fm=$1 want=$2 was=$3
  [ "$was" = "$want" ] && return 0
  if [ "$want" = true ]; then other=false; else other=true; fi
  key_rc=0
  for pid in $(fm_pids "$fm"); do
    if [ -z "${DISPLAY:-}" ] || ! have xdotool || ! have xprop || ! x11_client "$pid"; then
      relaunch_fm "$fm" || key_rc=1
      break
    fi
    wins=$(x11_windows "$pid")
    [ -n "$wins" ] || continue
    focused=$(xdotool getactivewindow 2>/dev/null) || focused=$(xdotool getwindowfocus -f 2>/dev/null) || focused=
    for entry in $(printf '%s\n' "$wins" | tr ' ' :); do
      w=${entry%%:*}
      x11_focus "$w"
      # The window writes its new state into the setting: set the other value first so that the key's
      # effect shows. A window that already showed the wanted state turns away from it on the first
      # key and back on the second.
      ok=
      for _ in 1 2; do
        set_value "$fm" "$other" >/dev/null 2>&1
        xdotool key --clearmodifiers ctrl+h >/dev/null 2>&1
        if await_value "$fm" "$want"; then ok=1; break; fi
      done
      [ "${entry#*:}" = iconic ] && xdotool windowminimize "$w" >/dev/null 2>&1
      [ -n "$ok" ] || { echo "window $w did not take Ctrl+H"; key_rc=1; }
    done
    [ -n "$focused" ] && x11_focus "$focused"
  done
  # Whatever the windows wrote last, the setting ends as asked.
  store_value "$fm" "$want" >/dev/null || key_rc=1
  return $key_rc
}

# Quits the file manager $1 when it runs and starts it again with the command line it had, so it reads
# the setting afresh. File managers that do not run are left alone.
relaunch_fm() {
  name=$1
  pids=$(fm_pids "$name")
  [ -n "$pids" ] || return 0
  first=${pids%%
*}
  cmdline=$(tr '\0' '\n' <"/proc/$first/cmdline" 2>/dev/null)
  case $name in
    dolphin) kill -TERM $pids 2>/dev/null ;;
    *) "$name" -q >/dev/null 2>&1 </dev/null 9>&- || kill -TERM $pids 2>/dev/null ;;
  esac
  tries=0
  while [ -n "$(fm_pids "$name")" ]; do
    tries=$((tries + 1))
    [ $tries -eq 50 ] && kill -TERM $(fm_pids "$name") 2>/dev/null
    if [ $tries -ge 100 ]; then
      echo "$name did not quit" >&2
      return 1
    fi
    sleep 0.1
  done
  set --
  while IFS= read -r arg; do set -- "$@" "$arg"; done <<END_OF_CMDLINE
$cmdline
END_OF_CMDLINE
  [ $# -gt 0 ] && [ -n "$1" ] || set -- "$name"
  # The file manager outlives this script: it must not hold the switch lock.
  if have setsid; then
    setsid "$@" >/dev/null 2>&1 </dev/null 9>&- &
  else
    "$@" >/dev/null 2>&1 </dev/null 9>&- &
  fi
  return 0
}

relaunch_running_fms() {
  rc=0
  for fm in nautilus dolphin thunar nemo caja; do
    relaunch_fm $fm || rc=1
  done
  return $rc
}
