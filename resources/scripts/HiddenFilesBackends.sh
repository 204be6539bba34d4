# The file managers' hidden-files settings, sourced by every hidden-files script from the folder it
# runs in. Not run on its own.
# Backends: gtk (GNOME Files and GTK file choosers, GTK 4 and GTK 3 keys), nemo, caja (GSettings),
# thunar (xfconf), dolphin (its global view properties). A backend whose schema or tool is missing is
# skipped. Names are handled in byte order, whatever the user's locale.
LC_ALL=C
export LC_ALL
: "${XDG_CONFIG_HOME:=$HOME/.config}"
: "${XDG_DATA_HOME:=$HOME/.local/share}"
DOLPHIN_GLOBAL="$XDG_DATA_HOME/dolphin/view_properties/global/.directory"
GTK4=org.gtk.gtk4.Settings.FileChooser
GTK3=org.gtk.Settings.FileChooser

have() { command -v "$1" >/dev/null 2>&1; }

gs_present() { have gsettings && gsettings list-keys "$1" 2>/dev/null | grep -qx "$2"; }

backend_present() {
  case $1 in
    gtk) gs_present $GTK4 show-hidden || gs_present $GTK3 show-hidden ;;
    nemo) gs_present org.nemo.preferences show-hidden-files ;;
    caja) gs_present org.mate.caja.preferences show-hidden-files ;;
    # Reaching the daemon is part of being present: without it nothing can be read or written.
    thunar) have xfconf-query && xfconf-query -l >/dev/null 2>&1 ;;
    dolphin) have kwriteconfig5 && have kreadconfig5 ;;
    *) return 1 ;;
  esac
}

present_backends() {
  for b in gtk nemo caja thunar dolphin; do
    if backend_present $b; then echo $b; fi
  done
}

# Prints true or false.
get_value() {
  case $1 in
    gtk) v=$(gsettings get $GTK4 show-hidden 2>/dev/null) || v=$(gsettings get $GTK3 show-hidden 2>/dev/null) || return 1 ;;
    nemo) v=$(gsettings get org.nemo.preferences show-hidden-files 2>/dev/null) || return 1 ;;
    caja) v=$(gsettings get org.mate.caja.preferences show-hidden-files 2>/dev/null) || return 1 ;;
    # An absent property is Thunar's default: hidden files not shown.
    thunar) v=$(xfconf-query -c thunar -p /last-show-hidden 2>/dev/null) || v=false ;;
    dolphin) v=$(kreadconfig5 --file "$DOLPHIN_GLOBAL" --group Settings --key HiddenFilesShown --default false 2>/dev/null) || return 1 ;;
    *) return 1 ;;
  esac
  if [ "$v" = true ]; then echo true; else echo false; fi
}

set_value() {
  case $1 in
    gtk)
      rc=1
      if gs_present $GTK4 show-hidden; then gsettings set $GTK4 show-hidden "$2" && rc=0; fi
      if gs_present $GTK3 show-hidden; then gsettings set $GTK3 show-hidden "$2" || rc=1; fi
      return $rc ;;
    nemo) gsettings set org.nemo.preferences show-hidden-files "$2" ;;
    caja) gsettings set org.mate.caja.preferences show-hidden-files "$2" ;;
    thunar) xfconf-query -c thunar -p /last-show-hidden -n -t bool -s "$2" ;;
    dolphin)
      mkdir -p "${DOLPHIN_GLOBAL%/*}" &&
        kwriteconfig5 --file "$DOLPHIN_GLOBAL" --group Settings --key HiddenFilesShown --type bool "$2" ;;
    *) return 1 ;;
  esac
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

backend_of() {
  case $1 in
    nautilus) echo gtk ;;
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

# The backend that tells the current state: the primary file manager's, else the first one present.
state_backend() {
  if fm=$(primary_fm); then
    b=$(backend_of "$fm")
    backend_present "$b" && { echo "$b"; return 0; }
  fi
  b=$(present_backends | head -n 1)
  [ -n "$b" ] && { echo "$b"; return 0; }
  echo "no supported file-manager setting for hidden files was found (GSettings schemas, xfconf, kwriteconfig5)" >&2
  return 1
}

current_value() {
  b=$(state_backend) || return 1
  get_value "$b" || { echo "cannot read the hidden-files setting of $b" >&2; return 1; }
}

# Writes the value to every backend present; fails when none took it.
write_all() {
  wrote=0
  failed=
  for b in $(present_backends); do
    if set_value "$b" "$1" >/dev/null 2>&1; then wrote=$((wrote + 1)); else failed="$failed $b"; fi
  done
  if [ $wrote -eq 0 ]; then
    if [ -n "$failed" ]; then
      echo "cannot write the hidden-files setting of:$failed" >&2
    else
      echo "no supported file-manager setting for hidden files was found (GSettings schemas, xfconf, kwriteconfig5)" >&2
    fi
    return 1
  fi
  [ -z "$failed" ] || echo "not written:$failed" >&2
  return 0
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
    *) "$name" -q >/dev/null 2>&1 </dev/null || kill -TERM $pids 2>/dev/null ;;
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
  if have setsid; then
    setsid "$@" >/dev/null 2>&1 </dev/null &
  else
    "$@" >/dev/null 2>&1 </dev/null &
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
