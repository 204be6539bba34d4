#!/bin/sh
# Moves items into a folder, never over an item already there: an item whose name is taken stays where
# it is, and the others go on. Across file systems the item is copied, then removed once copied whole.
#
#     /bin/sh MoveFilesToFolder9a.sh move_to_folder < LIST
#
# LIST and the report are those of FileOperations.sh, which lies beside this script.
. "$(dirname -- "$0")/FileOperations.sh"

move_one() {
  if ! err=$(mv -n -T -- "$1" "$2" 2>&1); then
    fail $n "$(complaint "$err" mv)"
  elif exists "$1"; then
    # mv -n skips quietly when the name was taken in the meantime.
    fail $n "an item with the same name appeared in the destination folder"
  fi
}

move_to_folder() {
  each_item_into_folder moved move_one
}

case "${1:-}" in
  move_to_folder) move_to_folder ;;
  *) echo "unknown handler \"${1:-}\"" >&2; exit 2 ;;
esac
