#!/bin/sh
# Moves items to the Trash through gio (the freedesktop Trash: the home Trash, or the item's file
# system's own .Trash-UID, with its .trashinfo). Nothing is ever deleted: an item gio cannot trash stays
# where it is, and the others go on.
#
#     /bin/sh RemoveFilesToTrash6.sh remove < LIST
#
# LIST (the items only) and the report are those of FileOperations.sh, which lies beside this script.
. "$(dirname -- "$0")/FileOperations.sh"

trash_one() {
  if ! err=$(gio trash -- "$1" 2>&1 </dev/null); then
    # gio names the item as a URI first: "gio: file:///...: reason".
    err=$(complaint "$err" gio)
    fail $n "${err#*: }"
  elif exists "$1"; then
    fail $n "it is still there after moving it to the Trash"
  fi
}

remove() {
  each_item trash_one
}

case "${1:-}" in
  remove) remove ;;
  *) echo "unknown handler \"${1:-}\"" >&2; exit 2 ;;
esac
