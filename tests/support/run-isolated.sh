#!/bin/sh
# Runs one test in a home of its own: a temporary HOME with its XDG folders, so no test ever touches the
# real user's files or settings. With --bus the test gets a private session bus (dbus-run-session),
# which stops with it. The temporary folder is removed afterwards.
set -u
bus=0
if [ "${1:-}" = "--bus" ]; then bus=1; shift; fi

top=$(mktemp -d "${TMPDIR:-/tmp}/trovix-test.XXXXXX") || exit 2
trap 'chmod -R u+rwx "$top" 2>/dev/null; rm -rf "$top"' EXIT INT TERM
export HOME="$top/home"
export XDG_CONFIG_HOME="$HOME/.config"
export XDG_DATA_HOME="$HOME/.local/share"
export XDG_CACHE_HOME="$HOME/.cache"
export XDG_STATE_HOME="$HOME/.local/state"
export XDG_RUNTIME_DIR="$top/run"
export GSETTINGS_BACKEND=keyfile
export QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}"
unset DBUS_SESSION_BUS_ADDRESS XDG_CURRENT_DESKTOP
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_STATE_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

if [ $bus -eq 1 ]; then
  dbus-run-session -- "$@"
else
  "$@"
fi
