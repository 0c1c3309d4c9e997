#!/usr/bin/python3
# A loopback RTSP server for the tests. Without a clip: H.264 video and G.711
# audio from test sources at /cam, paced as a camera would send them. With
# CODEC and CLIP (codec "mpeg4", "h264" or "h263"; an .mp4, .mkv or .avi
# file): the clip's video at /clip, from its start for every client, paced
# by its own times, over TCP only, so that what a client receives can be
# compared with the file. Listens on the port given as the first argument (0: any free one);
# prints "PORT <n>" once it listens, then serves until killed.
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402

CAMERA = (
    "( videotestsrc is-live=true pattern=ball ! video/x-raw,width=160,height=120,framerate=25/1 "
    "! openh264enc gop-size=10 ! h264parse ! rtph264pay name=pay0 pt=96 config-interval=-1 "
    "audiotestsrc is-live=true wave=sine ! audio/x-raw,rate=8000,channels=1 "
    "! mulawenc ! rtppcmupay name=pay1 pt=0 )"
)

DEMUXERS = {".mp4": "qtdemux", ".mkv": "matroskademux", ".avi": "avidemux"}
# The configuration travels in the session description only, as many cameras
# send it: a client must take it from there.
PAYLOADERS = {
    "mpeg4": "mpeg4videoparse ! rtpmp4vpay",
    "h264": "h264parse ! rtph264pay",
    # The payloader takes H.263 only with its version named.
    "h263": "h263parse ! video/x-h263,variant=itu,h263version=h263 ! rtph263ppay",
}


def clip_pipeline(codec, clip):
    demuxer = DEMUXERS[clip[clip.rfind("."):]]
    return "( filesrc location=\"%s\" ! %s ! %s name=pay0 pt=96 )" % (
        clip, demuxer, PAYLOADERS[codec])


def main():
    Gst.init(None)
    server = GstRtspServer.RTSPServer()
    server.set_address("127.0.0.1")
    server.set_service(sys.argv[1] if len(sys.argv) > 1 else "0")
    factory = GstRtspServer.RTSPMediaFactory()
    if len(sys.argv) > 3:
        factory.set_launch(clip_pipeline(sys.argv[2], sys.argv[3]))
        factory.set_shared(False)
        # Interleaved in the session's TCP connection: a loaded machine may
        # drop datagrams, and a clip compared frame for frame must not lose any.
        factory.set_protocols(GstRtsp.RTSPLowerTrans.TCP)
        mount = "/clip"
    else:
        factory.set_launch(CAMERA)
        factory.set_shared(True)
        mount = "/cam"
    server.get_mount_points().add_factory(mount, factory)
    if server.attach(None) == 0:
        print("FAILED to attach", flush=True)
        return 1
    print("PORT %d" % server.get_bound_port(), flush=True)
    GLib.MainLoop().run()
    return 0


if __name__ == "__main__":
    sys.exit(main())
