"""Asks Tumbler on the session bus for normal thumbnails of the URIs given and
prints one line per URI: "ready URI" or "error URI: message". Exits 0 once
Tumbler says the request is finished, 1 if it does not within the time limit."""

import sys

from gi.repository import Gio, GLib

NAME = "org.freedesktop.thumbnails.Thumbnailer1"
PATH = "/org/freedesktop/thumbnails/Thumbnailer1"
TIME_LIMIT_S = 60

uris = sys.argv[1:]
types = [Gio.content_type_guess(Gio.File.new_for_uri(u).get_path(), None)[0] for u in uris]
bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)
loop = GLib.MainLoop()
state = {"handle": None, "finished": False}


def on_signal(_conn, _sender, _path, _iface, signal, params):
    args = params.unpack()
    if args[0] != state["handle"]:
        return
    if signal == "Ready":
        for uri in args[1]:
            print(f"ready {uri}")
    elif signal == "Error":
        for uri in args[1]:
            print(f"error {uri}: {args[3]}")
    elif signal == "Finished":
        state["finished"] = True
        loop.quit()


bus.signal_subscribe(NAME, NAME, None, PATH, None, Gio.DBusSignalFlags.NONE, on_signal)
# D-Bus activation starts tumblerd on this private bus.
reply = bus.call_sync(NAME, PATH, NAME, "Queue",
                      GLib.Variant("(asasssu)", (uris, types, "normal", "default", 0)),
                      GLib.VariantType("(u)"), Gio.DBusCallFlags.NONE, TIME_LIMIT_S * 1000, None)
state["handle"] = reply.unpack()[0]
GLib.timeout_add_seconds(TIME_LIMIT_S, loop.quit)
loop.run()
sys.exit(0 if state["finished"] else 1)
