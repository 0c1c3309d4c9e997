#!/usr/bin/env bash
# Installs every Debian package that the build, the tests, the fuzzers and the
# benchmarks need. Does nothing when all of them are already there.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
  libxerces-c-dev libboost-dev libboost-regex-dev libicu-dev libhwy-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev
  libpango1.0-dev libcairo2-dev fonts-dejavu-core libopenjp2-7-dev
  ffmpeg x264 libjpeg-turbo-progs libturbojpeg0-dev libyuv-dev libpng-dev libopenh264-dev
  python3-gi gir1.2-gst-rtsp-server-1.0 gstreamer1.0-plugins-good gstreamer1.0-plugins-bad
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
