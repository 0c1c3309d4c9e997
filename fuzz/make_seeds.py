#!/usr/bin/env python3
"""Writes the seed inputs of every fuzz target into fuzz/<Dir>/corpus/<target>/.

Media comes from ffmpeg (tiny pictures and clips, a few hundred bytes each);
recordings are packed here in the record layout that the recording writer
uses. Every seed is deterministic apart from what ffmpeg's encoders put in.

    python3 fuzz/make_seeds.py            # every target
    python3 fuzz/make_seeds.py TARGET...  # only these
"""
import os
import random
import struct
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.abspath(__file__))
T0 = 1700000000000


# ---------------------------------------------------------------- media


def ffmpeg(arguments, suffix):
    with tempfile.TemporaryDirectory() as d:
        path = os.path.join(d, "out" + suffix)
        subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-y"] + arguments + [path],
                       check=True)
        return open(path, "rb").read()


def colour(grey, size="16x16"):
    return ["-f", "lavfi", "-i", "color=c=0x%02x%02x%02x:s=%s" % (grey, grey, 255 - grey, size)]


def testsrc(size="16x16", frames=3, rate=25):
    return ["-f", "lavfi", "-i", "testsrc=s=%s:r=%d:d=%g" % (size, rate, frames / rate)]


def jpeg(grey=80, size="16x16", pix_fmt="yuvj420p", extra=()):
    return ffmpeg(colour(grey, size) + ["-frames:v", "1", "-pix_fmt", pix_fmt, "-q:v", "8"] +
                  list(extra), ".jpg")


def h264_annexb(size="16x16", frames=3, extra=()):
    return ffmpeg(testsrc(size, frames) + ["-c:v", "libx264", "-preset", "ultrafast", "-g", "2",
                                           "-pix_fmt", "yuv420p"] + list(extra) +
                  ["-f", "h264"], ".h264")


def nal_units(stream):
    """The NAL units of an Annex B stream, without their start codes."""
    units = []
    i = 0
    starts = []
    while True:
        j = stream.find(b"\0\0\1", i)
        if j < 0:
            break
        starts.append(j + 3)
        i = j + 3
    for n, s in enumerate(starts):
        end = starts[n + 1] - 3 if n + 1 < len(starts) else len(stream)
        unit = stream[s:end]
        while unit.endswith(b"\0"):
            unit = unit[:-1]
        units.append(unit)
    return units


def without_segment(picture, marker):
    """A JPEG with every segment of one marker taken out."""
    out = picture[:2]
    i = 2
    while i + 4 <= len(picture) and picture[i] == 0xFF:
        kind = picture[i + 1]
        length = struct.unpack(">H", picture[i + 2:i + 4])[0]
        if kind != marker:
            out += picture[i:i + 2 + length]
        if kind == 0xDA:
            return out + picture[i + 2 + length:]
        i += 2 + length
    return out + picture[i:]


# ------------------------------------------------------------ records


def packet(time, payload, codec=1, sync=True, sequence=0):
    return struct.pack(">HIHHHQQI", 16, 32 + len(payload), codec, sequence, 1 if sync else 0,
                       time, time, 0) + payload


def block(time, payload, width=16, height=16, count=1):
    return struct.pack(">HHIIQQHHHH", 1, 0, 2, len(payload), time, time + 40 * count - 1, width,
                       height, 3, count) + payload


def audio(time, payload, codec=2, samples=None, sequence=0):
    samples = len(payload) if samples is None else samples
    header = struct.pack(">HIHHHQIBBIH", 17, 42 + len(payload), codec, sequence, 0, time,
                         samples, 1, 8, 8000, 0)
    return header + bytes(42 - len(header)) + payload


def multi(*records):
    body = b"".join(records)
    return struct.pack(">HIHQ", 32, 16 + len(body), len(records), 0) + body


def recording(pictures, step=40, damage=None):
    records = [packet(T0 + step * i, p, sync=(i % 2 == 0), sequence=i)
               for i, p in enumerate(pictures)]
    if damage is not None:
        at, value = damage
        r = bytearray(records[at])
        r[2:6] = struct.pack(">I", value)
        records[at] = bytes(r)
    return b"".join(records)


def pictures(count, size="16x16"):
    return [jpeg(30 + 200 * i // max(count, 1), size) for i in range(count)]


def scripted(file_bytes, script):
    """A file followed by its call script and the script's length."""
    assert len(script) < 256
    return file_bytes + bytes(script) + bytes([len(script)])


# ------------------------------------------------------------- targets


def generic_byte_data():
    p = jpeg()
    return {
        "video-packet": packet(T0, p),
        "block": block(T0, p),
        "block-three-images": block(T0, p * 3, count=3),
        "audio-packet": audio(T0, bytes(range(64))),
        "multi-packet": multi(packet(T0, p[:64]), audio(T0, bytes(32))),
        "raw-jpeg": p,
    }


def image_transformations():
    seeds = {}
    rng = random.Random(7)
    for kind in range(11):
        head = bytes([kind % 10, 24, 0, 16, 0, 1, kind % 8, 0, 32, kind])
        params = bytes(rng.randrange(256) for _ in range(12))
        pixels = bytes(rng.randrange(256) for _ in range(96))
        seeds["kind-%02d" % kind] = head + params + pixels
    return seeds


def jpeg_decoder():
    # The last byte picks the scale and output layout; bytes after the end
    # of the picture are ignored by the decoder.
    return {
        "gray": jpeg(90, "24x16", "gray") + b"\x04",
        "420": jpeg(120, "24x16") + b"\x00",
        "422-scaled": jpeg(60, "32x16", "yuvj422p") + b"\x05",
        "444-rgb": jpeg(200, "16x8", "yuvj444p") + b"\x0a",
        "restart-intervals": ffmpeg(testsrc("48x32", 1) + ["-pix_fmt", "yuvj420p", "-q:v", "5",
                                                           "-huffman", "default"], ".jpg") +
                             b"\x09",
        "odd-size": jpeg(160, "17x9") + b"\x12",
    }


def mpeg4_decoder():
    # The first byte: bit 0 chooses H.263 over MPEG-4, bit 5 cuts the records
    # at picture start codes; these seeds are cut so and decoded in full.
    def stream(size, frames, codec, extra, form):
        return ffmpeg(testsrc(size, frames) + ["-c:v", codec, "-pix_fmt", "yuv420p"] + extra +
                      ["-f", form], "." + form)
    return {
        "mpeg4-b-qpel": b"\x20" + stream("32x32", 4, "mpeg4", ["-bf", "1", "-flags", "+qpel",
                                                                "-g", "3"], "m4v"),
        "mpeg4-interlaced": b"\x20" + stream("32x32", 3, "mpeg4", ["-flags", "+ildct+ilme"],
                                              "m4v"),
        "h263": b"\x21" + stream("128x96", 2, "h263", ["-q:v", "20"], "h263"),
        "h263-plus": b"\x21" + stream("32x32", 3, "h263p", ["-flags", "+aic+loop", "-umv", "1",
                                                               "-q:v", "20"], "h263"),
    }


def h264_decoder():
    # The first byte chooses the unit framing, skip mode, low delay and how
    # the stream is cut; these seeds are Annex B, fed whole.
    def stream(size, frames, params):
        return ffmpeg(testsrc(size, frames) + ["-c:v", "libx264", "-pix_fmt", "yuv420p",
                                               "-x264-params", params, "-f", "h264"], ".h264")
    whole = b"\x20"
    return {
        "intra": whole + stream("32x32", 2, "cabac=0:keyint=1:8x8dct=1"),
        "p-frames": whole + stream("48x32", 4, "cabac=0:bframes=0:ref=2:weightp=2"),
        "b-frames": whole + stream("48x32", 6, "cabac=0:bframes=2:b-pyramid=normal:direct=temporal:weightb=1"),
        "slices": whole + stream("64x48", 3, "cabac=0:slices=3:partitions=all"),
        "pieces": b"\x40" + stream("32x32", 3, "cabac=0:bframes=1:direct=spatial"),
        "gray": whole + ffmpeg(testsrc("32x32", 2) + ["-c:v", "libx264", "-pix_fmt", "gray",
                                                     "-x264-params", "cabac=0", "-f", "h264"],
                               ".h264"),
        "cabac-intra": whole + stream("32x32", 2, "keyint=1:8x8dct=1:qp=12"),
        "cabac-p-frames": whole + stream("48x32", 4, "bframes=0:ref=2:weightp=2:partitions=all"),
        "cabac-b-frames": whole + stream("48x32", 6, "bframes=2:b-pyramid=normal:direct=temporal:weightb=1:8x8dct=1"),
        "cabac-slices": whole + stream("64x48", 3, "slices=3:bframes=1:direct=spatial:qp=2"),
        "cabac-gray": whole + ffmpeg(testsrc("32x32", 3) + ["-c:v", "libx264", "-pix_fmt", "gray",
                                                           "-x264-params", "bframes=1", "-f",
                                                           "h264"], ".h264"),
        # Interlaced: macroblock pairs of both field orders. Field pictures,
        # which x264 never writes, come from the stream writer of the tests:
        # I, P and B field pairs and a frame between them, kept as written.
        "field-pairs": open(os.path.join(ROOT, "H264", "field-pairs.h264"), "rb").read(),
        "mbaff": whole + stream("32x64", 3, "cabac=0:interlaced=1:tff=1:bframes=1"),
        # Odd lines inverted in moving blocks: field pairs beside frame
        # pairs, in I, P and B pictures, with constrained intra prediction.
        "mbaff-mixed": whole + ffmpeg(
            testsrc("48x64", 4) +
            ["-vf", "geq=lum='if(eq(mod(trunc(X/16)+trunc(Y/32)+N,3),0)*mod(Y,2),"
                    "255-lum(X,Y),lum(X,Y))':cb='cb(X,Y)':cr='cr(X,Y)'",
             "-c:v", "libx264", "-pix_fmt", "yuv420p", "-x264-params",
             "cabac=0:interlaced=1:bframes=1:constrained-intra=1:weightp=2", "-f", "h264"],
            ".h264"),
        "cabac-mbaff": whole + stream("32x64", 3, "interlaced=1:bff=1:bframes=1"),
        "cabac-mbaff-mixed": whole + ffmpeg(
            testsrc("48x64", 4) +
            ["-vf", "geq=lum='if(eq(mod(trunc(X/16)+trunc(Y/32)+N,3),0)*mod(Y,2),"
                    "255-lum(X,Y),lum(X,Y))':cb='cb(X,Y)':cr='cr(X,Y)'",
             "-c:v", "libx264", "-pix_fmt", "yuv420p", "-x264-params",
             "interlaced=1:bframes=1:8x8dct=1:weightp=2", "-f", "h264"],
            ".h264"),
    }


def media_conversion():
    def pieces(mode, items):
        return bytes([mode]) + b"".join(struct.pack(">H", len(i)) + i for i in items)

    units = nal_units(h264_annexb())
    sps = next(u for u in units if u[0] & 31 == 7)
    pps = next(u for u in units if u[0] & 31 == 8)
    avcc = bytes([1, sps[1], sps[2], sps[3], 0xFF, 0xE1]) + struct.pack(">H", len(sps)) + sps + \
        bytes([1]) + struct.pack(">H", len(pps)) + pps
    slices = [u for u in units if u[0] & 31 in (1, 5)]
    length_prefixed = [struct.pack(">I", len(u)) + u for u in slices]
    adts = ffmpeg(["-f", "lavfi", "-i", "sine=f=440:r=8000:d=0.3", "-c:a", "aac", "-b:a", "16k",
                   "-f", "adts"], ".aac")
    frames = []
    i = 0
    while i + 7 <= len(adts) and len(frames) < 3:
        length = ((adts[i + 3] & 3) << 11) | (adts[i + 4] << 3) | (adts[i + 5] >> 5)
        frames.append(adts[i + 7:i + length])
        i += length
    without_tables = without_segment(jpeg(), 0xC4)
    return {
        "h264-avcc": pieces(0, [avcc] + length_prefixed),
        "h264-annexb": pieces(0, [b""] + [b"\0\0\0\1" + u for u in units]),
        "aac-raw": pieces(1, [b"\x15\x88"] + frames),
        "aac-adts": pieces(1, [b""] + [adts[:200]]),
        "jpeg-without-tables": pieces(3, [without_tables]),
        "builder-h264": pieces(2 | (1 << 3), [avcc] + length_prefixed),
        "builder-pcm": pieces(2 | 4 | (6 << 3), [b"", bytes(range(0, 64, 2)), bytes(48)]),
    }


def overlay():
    rng = random.Random(11)
    seeds = {}
    for n in range(5):
        picture = bytes([8 + n, 6 + n, n * 2, n * 17])
        image = bytes([20, 12, n, 0x80])
        rest = bytes([n * 13, 1, 1]) + struct.pack("<ddd", 0.5 + n / 4, 2.0 * n, 1.5)
        seeds["overlay-%d" % n] = picture + image + rest + bytes(rng.randrange(256)
                                                                for _ in range(8))
    return seeds


def privacy_mask():
    return {
        "empty-0x0": bytes([8, 8, 0, 0]) + b"0x0",
        "grid-3x2": bytes([12, 8, 1, 1]) + b"3x2;101;010",
        "grid-5x3": bytes([20, 9, 5, 2]) + b"5x3;10101;01010;11111",
        "wide-40x1": bytes([40, 4, 3, 5]) + b"40x1;" + b"10" * 20,
    }


def recordings():
    p = pictures(4)
    return {
        "four-pictures": recording(p),
        "blocks": b"".join(block(T0 + 40 * i, x) for i, x in enumerate(p[:2])),
        "audio-and-video": packet(T0, p[0]) + audio(T0 + 5, bytes(80)) + packet(T0 + 40, p[1]),
        "damaged-length": recording(p, damage=(1, 0xFFFFFFF0)),
        "truncated": recording(p)[:-17],
        "time-gap": packet(T0, p[0]) + packet(T0 + 40, p[1]) + packet(T0 + 60000, p[2]),
    }


def recording_plugin():
    p = pictures(4)
    clean = recording(p)
    # Script: held back share, properties, then calls (see SourceSession.h).
    playback = [0, 1, 0, 7, 2, 7, 1, 7, 3, 7, 4, 5, 0x06, 0, 0x16, 5, 0x26, 0xfb, 0x36, 0,
                0x46, 1, 0x56, 0, 0x76, 0x80, 0xf8, 0x88]
    live = [180, 3, 9, 10, 12, 0x1a, 15, 0x2f, 0x3c, 0x3a, 11, 0x0e, 0x78]
    return {
        "playback": scripted(clean, playback),
        "live-growing": scripted(clean, live),
        "live-past-damage": scripted(recording(p, damage=(1, 0x7FFFFFFF)), live),
        "sequences": scripted(packet(T0, p[0]) + packet(T0 + 40, p[1]) +
                              packet(T0 + 90000, p[2]) + audio(T0 + 90010, bytes(40)),
                              [0, 9, 0, 4, 4, 7, 5, 7, 1, 5, 5, 7]),
        "privacy-mask": scripted(block(T0, p[0]) + block(T0 + 40, p[1]), [0, 8 | 3, 0, 7, 2, 7]),
    }


def media_plugin():
    play = [0, 1, 0, 7, 2, 7, 2, 7, 1, 7, 3, 7, 4, 5, 0x06, 0, 0x46, 0x10, 0x38, 9, 10, 0x1a]
    video = testsrc("32x24", 3)
    x264 = ["-c:v", "libx264", "-preset", "ultrafast", "-g", "2", "-pix_fmt", "yuv420p"]
    with_audio = ["-f", "lavfi", "-i", "sine=f=440:r=8000:d=0.12"]
    return {
        "mp4-h264": scripted(ffmpeg(video + x264 + ["-movflags", "+faststart"], ".mp4"), play),
        "mkv-h264-aac": scripted(ffmpeg(video + with_audio + x264 + ["-c:a", "aac", "-b:a", "8k",
                                                                     "-shortest"], ".mkv"), play),
        "ts-h264": scripted(ffmpeg(video + x264 + ["-f", "mpegts"], ".ts"), play),
        "mjpeg": scripted(ffmpeg(testsrc("32x24", 2) + ["-pix_fmt", "yuvj420p", "-q:v", "10",
                                                        "-f", "mjpeg"], ".mjpeg"), play),
        "raw-h264": scripted(h264_annexb("32x24"), play),
        "wav-mulaw": scripted(ffmpeg(["-f", "lavfi", "-i", "sine=f=300:r=8000:d=0.05", "-c:a",
                                      "pcm_mulaw"], ".wav"), play),
    }


def toolkit_configuration():
    def nested_toolkits(depth):
        inner = "<toolkit type='source'><provider>scripted</provider><config/></toolkit>"
        return ("<toolkit type='source'><provider>vzk</provider><config>" * depth + inner +
                "</config></toolkit>" * depth)

    def nested(element, depth, inner):
        return "<%s>" % element * depth + inner + "</%s>" % element * depth

    source = "<toolkit type='source'><provider>scripted</provider><config/></toolkit>"
    root = "<toolkit type='source'><provider>vzk</provider><config>%s</config></toolkit>"
    scripted_tree = open(os.path.join(ROOT, "..", "examples", "scripted-tree.xml")).read()
    return {
        "missing-plugin.xml": root % "<toolkit type='source'><provider>nosuch</provider>"
                                     "<config/></toolkit>",
        "scripted-tree.xml": scripted_tree,
        "decoder-chain.xml": root % ("<video_decoder luminance_only='true'><jpeg_encoder "
                                     "quality='50'>%s</jpeg_encoder></video_decoder>" % source),
        # Deeper than the nesting limit, in three shapes.
        "nested-150-toolkits.xml": nested_toolkits(150),
        "nested-1000-decoders.xml": root % nested("video_decoder", 1000, source),
        "nested-1000-unknown.xml": root % nested("x", 1000, source),
    }


def decoding_toolkits():
    # Toolkit choice, key flags, move script, then records, each as a mask
    # byte, a two-byte length and the record.
    def seed(element, flags, script, records):
        out = bytes([element, flags, script])
        for mask, record in records:
            out += bytes([mask]) + struct.pack(">H", len(record)) + record
        return out

    p = pictures(4)
    return {
        "packets": seed(0, 0, 0, [(0, packet(T0 + 40 * i, x)) for i, x in enumerate(p)]),
        "blocks-masked": seed(0, 2, 7, [(1 + i, block(T0 + 40 * i, x)) for i, x in enumerate(p)]),
        "raw-keyframes": seed(1, 1, 3, [(0, x) for x in p]),
        "conditional": seed(2, 32 | 64, 9, [(i, packet(T0 + 40 * i, x)) for i, x in enumerate(p)]),
        "h264-mixed": seed(0, 16, 2, [(0, packet(T0, p[0])),
                                      (0, packet(T0 + 40, b"\0\0\0\1\x67\x42", codec=10,
                                                 sync=False)),
                                      (0, packet(T0 + 80, p[1]))]),
        "h264-stream": seed(0, 0, 0, [(0, packet(T0 + 40 * i, b"\0\0\0\1" + u, codec=10,
                                                 sync=(i == 0)))
                                      for i, u in enumerate(nal_units(h264_annexb()))][:6]),
    }


def transform_tree():
    rng = random.Random(5)
    return {"random-%d" % n: bytes(rng.randrange(256) for _ in range(48 + 24 * n))
            for n in range(5)}


def jpeg2000():
    return {
        "j2k-gray": ffmpeg(colour(90, "16x16") + ["-frames:v", "1", "-pix_fmt", "gray", "-c:v",
                                                   "jpeg2000"], ".j2k"),
        "j2k-rgb": ffmpeg(testsrc("16x8", 1) + ["-pix_fmt", "rgb24", "-c:v", "jpeg2000"],
                          ".j2k"),
        "jp2-yuv": ffmpeg(testsrc("32x32", 1) + ["-pix_fmt", "yuv420p", "-c:v", "libopenjpeg",
                                                    "-numresolution", "2"],
                          ".jp2"),
    }


def command_line():
    lines = [
        ["run", "tree.xml", "--count", "3", "--out", "dir", "--format", "jpg", "--quality", "80"],
        ["run", "tree.xml", "--mode", "live", "--duration", "2.5", "-q"],
        ["run", "--from=2023-11-14T22:13:20Z", "--request", "Sequence_Number", "tree.xml"],
        ["import", "in.mp4", "out.gbd", "--count", "10", "--plugin", "dir"],
        ["info", "--records", "rec.gbd"],
        ["--help"],
    ]
    return {"%s-%d" % (line[0].strip("-"), n): b"\0".join(a.encode() for a in line)
            for n, line in enumerate(lines)}


def xml():
    configuration = toolkit_configuration()
    seeds = {name: configuration[name] for name in
             ("scripted-tree.xml", "nested-150-toolkits.xml", "nested-1000-unknown.xml")}
    seeds["attributes.xml"] = ("<?xml version='1.0' encoding='UTF-8'?><toolkit type='source' "
                               "file='a&amp;b' _update_key='k'><provider>p</provider>"
                               "<config><![CDATA[x<y]]><!-- c --></config></toolkit>")
    return seeds


TARGETS = {
    "GenericByteData/GenericByteDataFuzzer": generic_byte_data,
    "H264/fuzz_h264_decoder": h264_decoder,
    "Image/fuzz_image_transformations": image_transformations,
    "MPEG4/fuzz_mpeg4_decoder": mpeg4_decoder,
    "JPEG/JPEGDecoderFuzzer": jpeg_decoder,
    "Media/fuzz_media_conversion": media_conversion,
    "MediaPlugin/fuzz_media_plugin": media_plugin,
    "Overlay/OverlayFuzzer": overlay,
    "PrivacyMask/PrivacyMaskFuzzer": privacy_mask,
    "Recording/fuzz_recording_index": recordings,
    "Recording/fuzz_recording_plugin": recording_plugin,
    "Toolkits/fuzz_toolkit_configuration": toolkit_configuration,
    "Toolkits/fuzz_decoding_toolkits": decoding_toolkits,
    "Toolkits/fuzz_transform_tree": transform_tree,
    "Video/JPEG2000Fuzzer": jpeg2000,
    "Vzk/fuzz_vzk_recording_info": recordings,
    "Vzk/fuzz_vzk_command_line": command_line,
    "Xml/xml_fuzzer": xml,
}


def main(wanted):
    for key, make in TARGETS.items():
        directory, target = key.split("/")
        if wanted and target not in wanted:
            continue
        out = os.path.join(ROOT, directory, "corpus", target)
        os.makedirs(out, exist_ok=True)
        for name in os.listdir(out):
            os.remove(os.path.join(out, name))
        for name, data in make().items():
            if isinstance(data, str):
                data = data.encode()
            with open(os.path.join(out, name), "wb") as f:
                f.write(data)
        print("%-36s %s" % (target, out))


if __name__ == "__main__":
    main(set(sys.argv[1:]))
