#!/usr/bin/env bash
# Builds the plug-in and the example host, and pulls every item of the
# scripted example tree (or of the configuration file given).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh >/dev/null
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target vzk_example_host vzk_test_plugins >/dev/null
build/bin/vzk_example_host "${1:-examples/scripted-tree.xml}"
