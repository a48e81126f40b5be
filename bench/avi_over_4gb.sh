#!/usr/bin/env bash
# Writes a motion-JPEG AVI file above 4 GB through "LUMMJPEG" (1280x1024
# gray frames at quality 100, about 1.1 MB each), then checks it with
# `ffprobe -count_frames` and reads every frame back through "LUMAVI".
# Prints the figures. Not run by CI.
#
#   bash bench/avi_over_4gb.sh [FOLDER]       (default /tmp/lum-avi-bench)
#
# Environment: FRAMES (default 4000), PRESET (default "default"), KEEP=1 to
# keep the file. Needs about twice the file's size free in FOLDER: the
# writer keeps its coded frames in a temporary file there (TMPDIR) until
# Save copies them into the AVI file.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
preset=${PRESET:-default}
frames=${FRAMES:-4000}
folder=${1:-/tmp/lum-avi-bench}
file=$folder/over4gb.avi

mkdir -p "$folder"
free_kb=$(df -Pk "$folder" | awk 'NR == 2 { print $4 }')
need_kb=$((frames * 1200 * 2))
if [ "$free_kb" -lt "$need_kb" ]; then
  echo "Not enough space in $folder: $((free_kb / 1048576)) GB free, about $((need_kb / 1048576)) GB needed" >&2
  exit 1
fi

cd "$root"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target video_avi_bench lum_framework_modules -j2 >/dev/null
bin=$root/build/$preset/bin
driver=$root/build/$preset/tests/video_avi_bench
trap '[ "${KEEP:-0}" = 1 ] || rm -f "$file"' EXIT

echo "== writing $file ($frames frames)"
(cd "$bin" && TMPDIR="$folder" "$driver" write "$file" "$frames" 1280 1024 8 100 25)
size=$(stat -c %s "$file")
echo "file size: $size bytes ($(awk -v s="$size" 'BEGIN { printf "%.2f", s / 1073741824 }') GiB)"

if command -v ffprobe >/dev/null; then
  echo "== ffprobe -count_frames"
  start=$(date +%s.%N)
  ffprobe -v error -count_frames -select_streams v:0 \
    -show_entries stream=codec_name,width,height,r_frame_rate,nb_read_frames \
    -of default=noprint_wrappers=1 "$file"
  echo "ffprobe took $(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { printf "%.1f", b - a }') s"
else
  echo "ffprobe not installed: skipped"
fi

echo "== reading back through LUMAVI"
(cd "$bin" && "$driver" read "$file")
