"""A real RTSP server for the client's interoperability tests: GStreamer's RTSP server with
one audio test stream at /test, protected by Basic authentication.

Usage: rtsp_server.py USER PASSWORD
Listens on 127.0.0.1 at a port the kernel picks and prints that port on a line of its own.
Stops when its standard input is closed, so it never outlives the test that started it.
"""
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402


def main():
    user, password = sys.argv[1], sys.argv[2]
    Gst.init(None)

    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch(
        "( audiotestsrc is-live=true ! audioconvert ! rtpL16pay name=pay0 pt=97 )")
    factory.set_shared(True)
    permissions = GstRtspServer.RTSPPermissions()
    permissions.add_permission_for_role("listener", "media.factory.access", True)
    permissions.add_permission_for_role("listener", "media.factory.construct", True)
    factory.set_permissions(permissions)

    token = GstRtspServer.RTSPToken()
    token.set_string("media.factory.role", "listener")
    auth = GstRtspServer.RTSPAuth()
    auth.add_basic(GstRtspServer.RTSPAuth.make_basic(user, password), token)

    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service("0")
    server.set_auth(auth)
    server.get_mount_points().add_factory("/test", factory)
    server.attach(None)

    loop = GLib.MainLoop()
    GLib.io_add_watch(sys.stdin.fileno(), GLib.PRIORITY_DEFAULT,
                      GLib.IOCondition.IN | GLib.IOCondition.HUP | GLib.IOCondition.ERR,
                      lambda *_: loop.quit())
    print(server.get_bound_port(), flush=True)
    loop.run()


if __name__ == "__main__":
    main()
