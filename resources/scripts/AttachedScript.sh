#!/bin/sh
# Diagnostic: reports the primary file manager and the hidden-files setting of each backend present.

. "${0%/*}/HiddenFilesBackends.sh" || exit 2

# Reply: "primary NAME" (when known), then "BACKEND true|false" for each backend present.
if fm=$(primary_fm); then echo "primary $fm"; fi
for b in $(present_backends); do
  if v=$(get_value "$b"); then echo "$b $v"; fi
done
exit 0
