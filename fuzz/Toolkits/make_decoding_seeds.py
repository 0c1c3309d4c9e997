#!/usr/bin/env python3
"""Writes the seed inputs of fuzz_decoding_toolkits into decoding-corpus/.

Each seed: toolkit choice, key flags, move script, then records, each as a
mask byte, a two-byte length and the record. The pictures are 16 x 16 JPEGs
made by ffmpeg. Run from this directory: python3 make_decoding_seeds.py
"""
import os
import struct
import subprocess
import tempfile

T0 = 1700000000000


def jpeg(grey):
    with tempfile.TemporaryDirectory() as d:
        path = os.path.join(d, "p.jpg")
        subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
                        "color=c=0x%02x%02x%02x:s=16x16" % (grey, grey, grey), "-frames:v", "1",
                        "-q:v", "8", path], check=True)
        return open(path, "rb").read()


def packet(time, payload, codec=1, sync=True):
    header = struct.pack(">HIHHHQQI", 16, 32 + len(payload), codec, 0, 1 if sync else 0,
                         time, time, 0)
    return header + payload


def block(time, payload):
    header = struct.pack(">HHIIQQHHHH", 1, 0, 2, len(payload), time, time, 16, 16, 3, 1)
    return header + payload


def seed(element, flags, script, records):
    out = bytes([element, flags, script])
    for mask, record in records:
        out += bytes([mask]) + struct.pack(">H", len(record)) + record
    return out


pictures = [jpeg(40 + 50 * i) for i in range(4)]
seeds = {
    "packets": seed(0, 0, 0, [(0, packet(T0 + 40 * i, p)) for i, p in enumerate(pictures)]),
    "blocks-masked": seed(0, 2, 7, [(1 + i, block(T0 + 40 * i, p)) for i, p in enumerate(pictures)]),
    "raw-keyframes": seed(1, 1, 3, [(0, p) for p in pictures]),
    "conditional": seed(2, 32 | 64, 9, [(i, packet(T0 + 40 * i, p)) for i, p in enumerate(pictures)]),
    "h264-mixed": seed(0, 16, 2, [(0, packet(T0, pictures[0])),
                                  (0, packet(T0 + 40, b"\0\0\0\1\x67\x42", codec=10, sync=False)),
                                  (0, packet(T0 + 80, pictures[1]))]),
}
os.makedirs("decoding-corpus", exist_ok=True)
for name, data in seeds.items():
    with open(os.path.join("decoding-corpus", name), "wb") as f:
        f.write(data)
