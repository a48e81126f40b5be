#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan, the kit instrumented
# for coverage), writes their seed files with the project's own writers and
# runs every target (or the ones named) for a while.
#
#   bash scripts/fuzz.sh [--seconds N] [--runs N] [--seed N] [--build DIR] [--jobs N] [TARGET...]
#
#   --seconds N  time per target (default 60; LUM_FUZZ_SECONDS)
#   --runs N     stop a target after N inputs as well (default: no limit)
#   --seed N     seed of the mutations, so that a run can be repeated
#                (default: a new one each run; LUM_FUZZ_SEED)
#   --build DIR  build folder (default build/fuzz; LUM_FUZZ_BUILD)
#   --jobs N     build jobs (default: the number of cores; LUM_FUZZ_JOBS)
#   TARGET       fuzz_refstring, fuzz_jpeg_decoder, ... (default: all)
#
# Each target keeps its working corpus in DIR/fuzz/corpus/TARGET (kept from
# run to run), its log in DIR/fuzz/logs/TARGET.log, and any input that
# crashes, hangs (over 10 s), leaks or runs out of memory (2 GB) in
# DIR/fuzz/artifacts/TARGET/. Exits non-zero when any target found one.
# Inputs that once found a fault are kept in tests/fuzz/inputs/TARGET/ and
# tried again by every run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

seconds=${LUM_FUZZ_SECONDS:-60}
runs=""
seed=${LUM_FUZZ_SEED:-}
build=${LUM_FUZZ_BUILD:-build/fuzz}
jobs=${LUM_FUZZ_JOBS:-$(nproc)}
targets=()
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds) seconds=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    -h|--help) sed -n '2,21p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    -*) echo "fuzz.sh: unknown option $1" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
case "$build" in /*) ;; *) build="$root/$build" ;; esac

all_targets=(
  fuzz_refstring fuzz_value_conversion fuzz_xml_tagged fuzz_xml_tagged_search fuzz_prop_load_xml
  fuzz_file_archive_load fuzz_folder_stream fuzz_avi_reader fuzz_jpeg_decoder fuzz_bmp_decoder fuzz_png_decoder
)
[ ${#targets[@]} -eq 0 ] && targets=("${all_targets[@]}")

# ---- what the build needs: the project's packages, then clang with libFuzzer
bash scripts/install-deps.sh clang
fuzzer_runtime() { clang++ -print-file-name=libclang_rt.fuzzer-x86_64.a 2>/dev/null; }
# The sanitizer and libFuzzer runtimes are only recommended by clang.
if [ ! -f "$(fuzzer_runtime)" ]; then
  bash scripts/install-deps.sh "libclang-rt-$(clang++ -dumpversion | cut -d. -f1)-dev"
fi
# llvm-symbolizer names the functions in a report; Debian installs it versioned.
if ! command -v llvm-symbolizer >/dev/null; then
  for candidate in /usr/bin/llvm-symbolizer-* /usr/lib/llvm-*/bin/llvm-symbolizer; do
    [ -x "$candidate" ] && export ASAN_SYMBOLIZER_PATH=$candidate && break
  done
fi

# ---- build
echo "==== fuzz build ($build)"
started=$(date +%s)
if ! grep -q "^LUM_FUZZ:BOOL=ON" "$build/CMakeCache.txt" 2>/dev/null; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DLUM_FUZZ=ON -DBUILD_TESTING=OFF >/dev/null
fi
cmake --build "$build" --target lum_fuzz -j "$jobs"
echo "build: $(( $(date +%s) - started )) s"

bin="$build/bin"
work="$build/fuzz"
mkdir -p "$work/corpus" "$work/artifacts" "$work/logs"

# ---- seeds: files the kit and the module write, the text files shipped, and
# the inputs kept in tests/fuzz/inputs/TARGET/
seeds="$work/seeds"
rm -rf "$seeds"
"$bin/fuzz_seeds" "$seeds"
for t in fuzz_refstring fuzz_value_conversion fuzz_xml_tagged fuzz_xml_tagged_search fuzz_prop_load_xml \
         fuzz_file_archive_load; do
  mkdir -p "$seeds/$t"
  cp framework/data/strings/*.txt framework/data/Registry.ini.in "$seeds/$t/"
done
cp "$seeds/fuzz_file_archive_load/"*.xml "$seeds/fuzz_xml_tagged/"
cp "$seeds/fuzz_file_archive_load/"*.xml "$seeds/fuzz_xml_tagged_search/"
cp "$seeds/fuzz_file_archive_load/"*.xml "$seeds/fuzz_refstring/"
# Inputs that once found a fault, kept so that every run tries them again.
for kept in tests/fuzz/inputs/*/; do
  t=$(basename "$kept")
  mkdir -p "$seeds/$t"
  cp "$kept"* "$seeds/$t/"
done
printf '%s\n' '-12.5e+3x' '#FF8040' '"ab c" d' 'dir/file.ext' $'x\r\ny\n\nz' > "$seeds/fuzz_refstring/words.txt"
printf '%s\n' '-12abc' '#ff' '3.' '1.2.3' '-0.5' '0.100000' '#FFFFFFFF' > "$seeds/fuzz_value_conversion/numbers.txt"

# ---- runs
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1:allocator_may_return_null=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
summary=()
failed=0
for t in "${targets[@]}"; do
  if [ ! -x "$bin/$t" ]; then
    echo "fuzz.sh: no target $t (targets: ${all_targets[*]})" >&2
    exit 2
  fi
  corpus="$work/corpus/$t"
  artifacts="$work/artifacts/$t"
  log="$work/logs/$t.log"
  mkdir -p "$corpus" "$artifacts" "$seeds/$t"
  echo "==== $t: ${seconds} s${runs:+, at most $runs inputs}"
  options=(-max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -detect_leaks=1 -print_final_stats=1
           -artifact_prefix="$artifacts/")
  [ -n "$runs" ] && options+=(-runs="$runs")
  [ -n "$seed" ] && options+=(-seed="$seed")
  status=0
  "$bin/$t" "${options[@]}" "$corpus" "$seeds/$t" >"$log" 2>&1 || status=$?

  # A run that ends early may lack any of these lines.
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1 || true)
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1 || true)
  coverage=$( (grep -o 'cov: [0-9]*' "$log" || true) | tail -1 | cut -d' ' -f2)
  features=$( (grep -o 'ft: [0-9]*' "$log" || true) | tail -1 | cut -d' ' -f2)
  files=$(find "$corpus" -type f | wc -l)
  result=ok
  if [ "$status" -ne 0 ]; then
    failed=1
    found=$(ls -t "$artifacts" 2>/dev/null | head -1 || true)
    case "$found" in
      crash-*) result="CRASH" ;;
      timeout-*) result="HANG" ;;
      leak-*) result="LEAK" ;;
      oom-*) result="OOM" ;;
      *) result="FAILED (exit $status)" ;;
    esac
    [ -n "$found" ] && result="$result: $artifacts/$found"
    grep -m1 -E 'ERROR: |runtime error|fuzz check failed|Timeout|out-of-memory' "$log" | sed 's/^/  /' || true
    echo "  log: $log"
  fi
  line=$(printf '%-24s %12s %9s %8s %8s %8s  %s' "$t" "${executions:-?}" "${speed:-?}" "$files" \
         "${coverage:-?}" "${features:-?}" "$result")
  echo "$line"
  summary+=("$line")
done

echo "==== fuzz summary (${seconds} s per target; total $(( $(date +%s) - started )) s)"
printf '%-24s %12s %9s %8s %8s %8s  %s\n' target executions exec/s corpus cov ft result
printf '%s\n' "${summary[@]}"
exit $failed
