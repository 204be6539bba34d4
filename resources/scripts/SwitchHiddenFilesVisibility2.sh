#!/bin/sh
# Toggles the display of hidden files in place: the primary file manager's setting decides the new
# value, which is written to every file manager's setting present (GTK-based ones apply it live).

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

value=$(current_value) || exit 2
if [ "$value" = true ]; then new=false; else new=true; fi
write_all $new || exit 1
exit 0
