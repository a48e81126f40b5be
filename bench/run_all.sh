#!/usr/bin/env bash
# Measures the camcorder against the tools users would pick instead, from a
# clean clone, in one command:
#
#   bash bench/run_all.sh [--rounds N] [--frames N] ...   (options of bench/compare.py)
#
# Installs the build's packages and the peers (ffmpeg, GStreamer, OpenCV,
# libjpeg-turbo's tools, matplotlib) from Debian, builds in release mode in
# build/bench, runs every benchmark round by round over the same frames and
# writes bench/results/latest.json, latest.md and recording.png.
set -euo pipefail
cd "$(dirname "$0")/.."
started=$(date +%s)

# The build's packages and the peers.
bash scripts/install-deps.sh \
  ffmpeg `# ffmpeg, ffprobe` \
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good `# gst-launch-1.0, rawvideoparse, jpegenc, avimux` \
  python3-opencv `# cv2.imwrite / cv2.imread` \
  python3-matplotlib `# the plot` \
  libjpeg-turbo-progs `# djpeg`

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build build/bench --target compare_bench -j "$(nproc)"
built=$(date +%s)
echo "run_all.sh: installed and built in $((built - started)) s; load average now: $(cut -d' ' -f1-3 /proc/loadavg)"

# Debian's interpreter, which has the cv2 and matplotlib modules installed above.
/usr/bin/python3 bench/compare.py "$@"
echo "run_all.sh: whole run took $(( $(date +%s) - started )) s"
