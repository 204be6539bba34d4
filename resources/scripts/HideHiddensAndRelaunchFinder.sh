#!/bin/sh
# Hides hidden files in every file manager's setting, then quits and restarts the file managers that
# were running.

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

store_all false || exit 1
relaunch_running_fms || exit 1
exit 0
