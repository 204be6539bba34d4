#!/usr/bin/python3
"""Counts the times a file is written (a rename or link onto its name, or a write closed on it), by
watching its folder with inotify. Usage: count-writes.py FILE COUNT_FILE. Writes the running count into COUNT_FILE
after each write."""
import ctypes
import os
import struct
import sys

IN_CLOSE_WRITE = 0x00000008
IN_MOVED_TO = 0x00000080
IN_CREATE = 0x00000100

path, out = sys.argv[1], sys.argv[2]
folder, name = os.path.split(os.path.abspath(path))
libc = ctypes.CDLL(None, use_errno=True)
fd = libc.inotify_init()
if fd < 0 or libc.inotify_add_watch(fd, folder.encode(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE) < 0:
    sys.exit("inotify: %s" % os.strerror(ctypes.get_errno()))
count = 0
with open(out, "w") as f:
    f.write("0\n")
while True:
    data = os.read(fd, 65536)
    offset = 0
    while offset < len(data):
        _, mask, _, length = struct.unpack_from("iIII", data, offset)
        event_name = data[offset + 16:offset + 16 + length].rstrip(b"\0").decode(errors="replace")
        offset += 16 + length
        if event_name == name:
            count += 1
            with open(out, "w") as f:
                f.write("%d\n" % count)
