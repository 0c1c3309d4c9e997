#!/usr/bin/env bash
# The demo, on a fresh machine: installs what is missing, builds vzk and the
# plug-ins, makes a ten-second sample clip with ffmpeg, turns it into a
# recording, runs example trees over the recording with `vzk run` (the stored
# pictures; decoded pictures with a privacy mask and a caption; JPEG
# thumbnails; a live replay), and tells where the pictures are.
#
#   scripts/run-example.sh [MEDIA]    MEDIA: your own clip instead of the sample
#                                     (needs the media plug-in)
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '\n== %s\n' "$*"; }

say "Installing what is missing (Debian packages)"
scripts/install-deps.sh

say "Building vzk and the plug-ins in build/"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=(vzk)
# The media plug-in reads media files; builds that have it import through it.
# (The list is read whole first: grep -q would stop early and break the pipe.)
all_targets=$(ninja -C build -t targets all 2>/dev/null || true)
if grep -q '^ToolkitSourcePlugin_media:' <<<"$all_targets"; then
  targets+=(ToolkitSourcePlugin_media)
fi
cmake --build build --target "${targets[@]}"

demo=build/demo
mkdir -p "$demo"
rm -rf "$demo/jpeg" "$demo/masked" "$demo/thumbnails" "$demo/live" "$demo/sheet.png"
media=${1:-}
if [ -z "$media" ]; then
  say "Making a sample clip: $demo/sample.mkv (10 s, 320x240, 25 pictures a second, MJPEG)"
  ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=320x240:rate=25 -t 10 \
    -c:v mjpeg -q:v 4 "$demo/sample.mkv"
  media=$demo/sample.mkv
fi

if [ -f build/bin/ToolkitSourcePlugin_media.so ]; then
  say "Importing $media into the recording $demo/sample.gbd"
  build/bin/vzk import "$media" "$demo/sample.gbd"
else
  if [ -n "${1:-}" ]; then
    echo "This build has no media plug-in yet, so it cannot import $media." >&2
    exit 1
  fi
  # Without the media plug-in, the recording is the clip's JPEG pictures back
  # to back: raw JPEG records, which the recording plug-in reads as they are.
  say "Making the recording $demo/sample.gbd from the clip's JPEG pictures"
  ffmpeg -nostdin -v error -y -i "$media" -c:v copy -f mjpeg "$demo/sample.gbd"
fi

say "What the recording holds (vzk info)"
build/bin/vzk info "$demo/sample.gbd"

say "Running examples/jpeg-records-to-files.xml (vzk run, playback: the stored JPEG pictures)"
build/bin/vzk run examples/jpeg-records-to-files.xml --out "$demo/jpeg" \
  --request Sequence_Number

say "Running examples/privacy-mask-and-overlay.xml (decoded, masked, captioned)"
build/bin/vzk run examples/privacy-mask-and-overlay.xml --out "$demo/masked" \
  --request Privacy_Mask --contact-sheet "$demo/sheet.png"

say "Running examples/thumbnails-as-jpeg.xml (decoded, fitted into 160x120, encoded again)"
build/bin/vzk run examples/thumbnails-as-jpeg.xml --out "$demo/thumbnails"

say "Running examples/live-replay.xml (vzk run, live, 2 seconds)"
build/bin/vzk run examples/live-replay.xml --mode live --duration 2 --out "$demo/live"

count=$(find "$demo/jpeg" -name '*.jpg' | wc -l)
masked=$(find "$demo/masked" -name '*.png' | wc -l)
cat <<END

Done. The stored pictures are in $demo/jpeg/ ($count JPEG files, jpeg-000001.jpg
first; items.txt lists every item with its times). Decoded with a privacy mask
and a caption burnt in, they are in $demo/masked/ ($masked PNG files), with a
contact sheet of them in $demo/sheet.png; JPEG thumbnails are in
$demo/thumbnails/, and the pictures of the live replay in $demo/live/.
The recording is $demo/sample.gbd. More trees are in examples/ (see
examples/README.md); build/bin/vzk --help tells every option.
END
