#!/usr/bin/python3
# A loopback RTSP server for the media plug-in's live test: H.264 video and
# G.711 audio from test sources, paced as a camera would send them. Listens on
# the port given as the argument, else on any free one; prints "PORT <n>" once
# it listens, then serves until killed.
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

PIPELINE = (
    "( videotestsrc is-live=true pattern=ball ! video/x-raw,width=160,height=120,framerate=25/1 "
    "! openh264enc gop-size=10 ! h264parse ! rtph264pay name=pay0 pt=96 config-interval=-1 "
    "audiotestsrc is-live=true wave=sine ! audio/x-raw,rate=8000,channels=1 "
    "! mulawenc ! rtppcmupay name=pay1 pt=0 )"
)


def main():
    Gst.init(None)
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service(sys.argv[1] if len(sys.argv) > 1 else "0")
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch(PIPELINE)
    factory.set_shared(True)
    server.get_mount_points().add_factory("/cam", factory)
    if server.attach(None) == 0:
        print("FAILED to attach", flush=True)
        return 1
    print("PORT %d" % server.get_bound_port(), flush=True)
    GLib.MainLoop().run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
