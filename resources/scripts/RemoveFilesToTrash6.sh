#!/bin/sh
# Moves items to the Trash through gio (the freedesktop Trash: the home Trash, or the item's file
# system's own .Trash-UID, with its .trashinfo). Nothing is ever deleted: an item gio cannot trash stays
# where it is, and the others go on.
#
#     /bin/sh RemoveFilesToTrash6.sh remove < LIST
#
# Standard input holds the items' paths, one per line. Each byte outside [A-Za-z0-9/._-] is written
# as \0NNN (three octal digits), so a name of any bytes survives (not UTF-8, line breaks, quotes, a
# leading dash). For each item that was not done, one line "N<TAB>reason" goes to standard output, N
# being the item's line counted from 0. Exit status: 0 when every item was done, 1 when some were not,
# 2 for a call this script does not know.
set -u

failed=0

# The path of one input line, in $decoded. The dot keeps trailing line breaks from $(...).
decode() {
  decoded=$(printf '%b.' "$1")
  decoded=${decoded%.}
}

# One line per failed item; the reason on one line whatever a tool printed.
fail() {
  reason=$(printf '%s' "$2" | tr '\n\t' '  ')
  printf '%s\t%s\n' "$1" "$reason"
  failed=1
}

exists() {
  [ -e "$1" ] || [ -L "$1" ]
}

# A tool's last line of complaint, without its "tool: " prefix.
complaint() {
  last=$(printf '%s\n' "$1" | tail -n 1)
  printf '%s' "${last#"$2": }"
}

remove() {
  n=0
  while IFS= read -r line; do
    decode "$line"
    src=$decoded
    # A relative path would depend on the folder this runs in.
    if [ "${src#/}" = "$src" ]; then
      fail $n "not an absolute path"
    elif ! exists "$src"; then
      fail $n "it no longer exists"
    elif ! err=$(gio trash -- "$src" 2>&1 </dev/null); then
      # gio names the item as a URI first: "gio: file:///...: reason".
      err=$(complaint "$err" gio)
      fail $n "${err#*: }"
    elif exists "$src"; then
      fail $n "it is still there after moving it to the Trash"
    fi
    n=$((n + 1))
  done
  return $failed
}

case "${1:-}" in
  remove) remove ;;
  *) echo "unknown handler \"${1:-}\"" >&2; exit 2 ;;
esac
