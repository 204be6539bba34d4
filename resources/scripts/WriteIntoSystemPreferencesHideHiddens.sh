#!/bin/sh
# Stores "hide hidden files" in every file manager's setting without restarting any of them.

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

store_all false || exit 1
exit 0
