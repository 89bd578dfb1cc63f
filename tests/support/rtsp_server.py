"""A real RTSP server for the client's interoperability tests: GStreamer's RTSP server with
one live stream at /test.

Usage: rtsp_server.py USER PASSWORD [--auth basic|digest|none] [--media audio|av|FILE]
  --auth   how the stream is protected (basic by default; none takes no credentials)
  --media  audio: a test tone as RTP L16 (the default); av: a 320x240 test picture in
           H.264 (a key frame every second) with a tone in AAC; FILE: the H.264 video of
           an MP4 file, sent in real time from its start to each client
Listens on 127.0.0.1 at a port the kernel picks and prints that port on a line of its own.
Stops when its standard input is closed, so it never outlives the test that started it.
"""
import argparse
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402

TONE = "audiotestsrc is-live=true ! audioconvert ! rtpL16pay name=pay0 pt=97"
PICTURE_AND_TONE = (
    "videotestsrc is-live=true pattern=ball ! video/x-raw,width=320,height=240,framerate=25/1"
    " ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max=25"
    " ! rtph264pay name=pay0 pt=96 config-interval=-1"
    " audiotestsrc is-live=true wave=sine ! audioconvert ! audioresample"
    " ! audio/x-raw,rate=48000,channels=2 ! avenc_aac ! rtpmp4gpay name=pay1 pt=97")
FILE_VIDEO = ("filesrc location={} ! qtdemux"
              " ! rtph264pay name=pay0 pt=96 config-interval=-1")


def launch_line(media):
    if media == "audio":
        return TONE
    if media == "av":
        return PICTURE_AND_TONE
    return FILE_VIDEO.format(media)


def protect(server, factory, user, password, method):
    if method == "none":
        return
    permissions = GstRtspServer.RTSPPermissions()
    permissions.add_permission_for_role("listener", "media.factory.access", True)
    permissions.add_permission_for_role("listener", "media.factory.construct", True)
    factory.set_permissions(permissions)
    token = GstRtspServer.RTSPToken()
    token.set_string("media.factory.role", "listener")
    auth = GstRtspServer.RTSPAuth()
    if method == "digest":
        auth.set_supported_methods(GstRtsp.RTSPAuthMethod.DIGEST)
        auth.add_digest(user, password, token)
    else:
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic(user, password), token)
    server.set_auth(auth)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("user")
    parser.add_argument("password")
    parser.add_argument("--auth", default="basic", choices=["basic", "digest", "none"])
    parser.add_argument("--media", default="audio")
    args = parser.parse_args()
    Gst.init(None)

    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch("( " + launch_line(args.media) + " )")
    # Every client of a file gets it from its start; a live source is one for all.
    factory.set_shared(args.media in ("audio", "av"))
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service("0")
    protect(server, factory, args.user, args.password, args.auth)
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
