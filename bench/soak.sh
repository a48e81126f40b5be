#!/usr/bin/env bash
# Soak run of the camera module: each scenario of soak_bench in turn (the
# synthetic camera recorded as JPEG files through the save thread, the same
# with an archive that writes nothing, and the file player replaying a
# folder in a loop), each for the same time, then a summary.
#
#   bash bench/soak.sh [--minutes N] [--scenarios "jpeg null replay"]
#
# Builds soak_bench in release mode in build/soak (SOAK_BUILD_DIR chooses
# another build folder), runs it from the output folder and writes
# bench/results/soak.md (SOAK_SUMMARY chooses another file) and every
# scenario's own output beside it as soak-<scenario>.log. Exit status 1 when
# any scenario failed (resident memory grew by 1 % or more after the
# warm-up, or the thread count changed).
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=10
scenarios="jpeg null replay"
while [ $# -gt 0 ]; do
  case "$1" in
    --minutes) minutes="$2"; shift 2 ;;
    --scenarios) scenarios="$2"; shift 2 ;;
    -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
    *) echo "soak.sh: unknown option $1" >&2; exit 2 ;;
  esac
done

build="${SOAK_BUILD_DIR:-build/soak}"
summary="${SOAK_SUMMARY:-bench/results/soak.md}"
mkdir -p "$(dirname "$summary")"
logs="$(cd "$(dirname "$summary")" && pwd)"

bash scripts/install-deps.sh
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
fi
cmake --build "$build" --target soak_bench -j "$(nproc)"

{
  echo "# Soak run"
  echo
  echo "$(date -u '+%Y-%m-%d %H:%M UTC') on $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')" \
       "($(nproc) cores), $minutes min per scenario; load average at the start: $(cut -d' ' -f1-3 /proc/loadavg)."
  echo
  echo "| scenario | frames | frames/s | resident memory after warm-up | at the end | growth | growth of the highest | threads | result |"
  echo "|---|---|---|---|---|---|---|---|---|"
} > "$summary"

status=0
for scenario in $scenarios; do
  log="$logs/soak-$scenario.log"
  echo "soak.sh: scenario $scenario, $minutes min"
  set +e
  (cd "$build/bin" && ./soak_bench --minutes "$minutes" --scenario "$scenario") 2>&1 | tee "$log"
  rc=${PIPESTATUS[0]}
  set -e
  [ "$rc" -ne 0 ] && status=1
  # The last line of soak_bench reads: "soak: scenario S: F frames in T s (R frames/s);
  # resident memory A KiB after the warm-up, B KiB at the end (lowest of a window of W s;
  # highest C and D KiB, P %): growth G %; threads ..., RESULT".
  line=$(grep '^soak: scenario .*: [0-9]* frames' "$log" | tail -n1 || true)
  if [ -z "$line" ]; then
    echo "| $scenario | | | | | | | | FAIL (exit $rc, no summary) |" >> "$summary"
    continue
  fi
  frames=$(sed -E 's/.*: ([0-9]+) frames in.*/\1/' <<<"$line")
  rate=$(sed -E 's/.*\(([0-9.]+) frames\/s\).*/\1/' <<<"$line")
  warm=$(sed -E 's/.*memory ([0-9]+) KiB after.*/\1/' <<<"$line")
  end=$(sed -E 's/.*, ([0-9]+) KiB at the end.*/\1/' <<<"$line")
  growth=$(sed -E 's/.*growth ([-+0-9.]+) %.*/\1/' <<<"$line")
  peak=$(sed -E 's/.*highest [0-9]+ and [0-9]+ KiB, ([-+0-9.]+) %.*/\1/' <<<"$line")
  threads=$(sed -E 's/.*threads ([0-9]+) after the warm-up, ([0-9]+) at the end, ([a-z]+).*/\1 → \2, \3/' <<<"$line")
  result=$(sed -E 's/.*; (PASS|FAIL)$/\1/' <<<"$line")
  echo "| $scenario | $frames | $rate | $warm KiB | $end KiB | $growth % | $peak % | $threads | $result |" >> "$summary"
done

echo >> "$summary"
echo "Resident memory is sampled every second. Growth compares the lowest sample of the window right after the warm-up (the first minute, or the first 10 % of a shorter run) with the lowest of the run's last window (60 s, or 10 % of a shorter run): what the process keeps between frames. The growth of the highest compares the two windows' highest samples: what it holds with frames in flight." >> "$summary"
echo "soak.sh: summary in $summary"
cat "$summary"
exit $status
