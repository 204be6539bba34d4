#!/bin/sh
# Prints the free space of the start-up disk ("/") that the user may fill, in bytes, as one number.
df -P -B1 / 2>/dev/null | awk 'NR == 2 { print $4 }'
