#!/bin/sh
# Copies items into a folder, never over an item already there: an item whose name is taken is not
# copied, and the others go on. Folders are copied whole, links as links, with modes and times.
#
#     /bin/sh CopyFilesToFolder9a.sh copy_to_folder < LIST
#
# LIST and the report are those of FileOperations.sh, which lies beside this script.
. "$(dirname -- "$0")/FileOperations.sh"

copy_one() {
  # -n and -T: should an item of that name appear meanwhile, nothing in it is replaced and a folder is
  # never copied into it.
  if ! err=$(cp -a -n -T -- "$1" "$2" 2>&1); then
    fail $n "$(complaint "$err" cp)"
  fi
}

copy_to_folder() {
  each_item_into_folder copied copy_one
}

case "${1:-}" in
  copy_to_folder) copy_to_folder ;;
  *) echo "unknown handler \"${1:-}\"" >&2; exit 2 ;;
esac
