#!/usr/bin/env bash
# The main job: builds the module and its framework kit, then, from the
# output folder, records the synthetic camera through the camcorder to JPEG
# files and to an AVI, plays the JPEG recording back, and replays its folder
# as a live camera through the file player. With arguments,
# runs `lumhost ARGS...` instead. Installs what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
cd build/default/bin

if [ $# -gt 0 ]; then
  exec ./lumhost "$@"
fi
rm -rf demo
./lumhost record --frames 100 --fps 50 --size 640x480 --folder demo/jpeg
./lumhost record --frames 100 --fps 50 --size 640x480 --format avi --folder demo/clip
./lumhost play --folder demo/jpeg --fps 100 | tail -n 3
./lumhost replay demo/jpeg --fps 100 | tail -n 3
echo "recordings in $(pwd)/demo: jpeg/ (one file per frame) and clip.avi"
