#!/usr/bin/python3
"""A small desktop notification server for tests: owns org.freedesktop.Notifications on the session bus
and appends each Notify call to the log file given as the only argument, one JSON object a line
({"app", "summary", "body"}). Writes "ready" to standard output once it owns the name."""
import json
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

IFACE = "org.freedesktop.Notifications"


class Server(dbus.service.Object):
    def __init__(self, bus, log):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.log = log
        self.count = 0

    @dbus.service.method(IFACE, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        self.count += 1
        with open(self.log, "a", encoding="utf-8") as out:
            out.write(json.dumps({"app": str(app), "summary": str(summary), "body": str(body)}) + "\n")
        return dbus.UInt32(self.count)

    @dbus.service.method(IFACE, out_signature="as")
    def GetCapabilities(self):
        return ["body"]

    @dbus.service.method(IFACE, out_signature="ssss")
    def GetServerInformation(self):
        return ("fake", "trovix-tests", "1", "1.2")


def main():
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    name = dbus.service.BusName(IFACE, bus, do_not_queue=True)
    server = Server(bus, sys.argv[1])
    print("ready", flush=True)
    GLib.MainLoop().run()
    del name, server


if __name__ == "__main__":
    main()
