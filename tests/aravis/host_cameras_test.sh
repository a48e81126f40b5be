#!/usr/bin/env bash
# The host's camera choice, run as a user runs it from the output folder:
# "cameras", and "record" and "stack record" with --camera on Aravis's
# in-process fake camera. LUM_ARAVIS_INTERFACES=Fake keeps Aravis off every
# network: no GigE Vision discovery goes out.
set -uo pipefail
host=./lumhost
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
export LUM_ARAVIS_INTERFACES=Fake
unset LUM_ARAVIS_FAKE

# Runs the host with the remaining arguments; sets $out, $err and $rc.
run() {
  out=$("$host" "$@" 2>"$work/stderr")
  rc=$?
  err=$(cat "$work/stderr")
}

# The width, height and bits per pixel in a BMP file's header.
bmp_layout() {
  local w h b
  w=$(od -An -t d4 -j 18 -N 4 "$1" | tr -d ' ')
  h=$(od -An -t d4 -j 22 -N 4 "$1" | tr -d ' -')
  b=$(od -An -t u2 -j 28 -N 2 "$1" | tr -d ' ')
  echo "${w}x${h}x${b}"
}

# cameras: the fake camera is offered only when LUM_ARAVIS_FAKE=1 asks for it.
run cameras
[ $rc -eq 0 ] || fail "cameras without the fake: exit $rc: $err"
grep -q '^no cameras found' <<<"$out" || fail "cameras without the fake: $out"
grep -q 'Fake_1' <<<"$out" && fail "the fake camera is listed without LUM_ARAVIS_FAKE: $out"

export LUM_ARAVIS_FAKE=1
run cameras
[ $rc -eq 0 ] || fail "cameras: exit $rc: $err"
grep -Eq '^ID +VENDOR +MODEL +SERIAL +ADDRESS$' <<<"$out" || fail "cameras header: $out"
grep -Eq '^Fake_1 +Aravis +Fake +1 +0\.0\.0\.0$' <<<"$out" || fail "cameras row: $out"
grep -q '^1 camera$' <<<"$out" || fail "cameras count: $out"
run cameras --help
grep -q 'LUM_ARAVIS_FAKE=1' <<<"$out" || fail "cameras --help does not name LUM_ARAVIS_FAKE: $out"
run record --help
grep -q -- '--camera C' <<<"$out" || fail "record --help does not offer --camera: $out"
run stack --help
grep -q -- '--camera C' <<<"$out" || fail "stack --help does not offer --camera: $out"

# record: every frame of the fake camera as a file, nothing dropped.
run record --camera aravis:Fake_1 --frames 30 --format bmp --folder "$work/fake"
[ $rc -eq 0 ] || fail "record from Fake_1: exit $rc: $err"
[ "$(ls "$work/fake" | wc -l)" -eq 30 ] || fail "record from Fake_1 wrote: $(ls "$work/fake")"
grep -Eq '^camera: [0-9]+ delivered, 0 incomplete, 0 dropped$' <<<"$out" || fail "record counters: $out"
# The fake camera keeps its own 512x512 gray frames unless told otherwise.
[ "$(bmp_layout "$work/fake/0000.bmp")" = "512x512x8" ] || fail "default layout: $(bmp_layout "$work/fake/0000.bmp")"

# --size, --bits and --fps reach the camera and show in the files.
run record --camera aravis:Fake_1 --frames 4 --size 320x200 --bits 24 --fps 100 --format bmp --folder "$work/color"
[ $rc -eq 0 ] || fail "record 320x200 at 24 bits: exit $rc: $err"
[ "$(ls "$work/color" | wc -l)" -eq 4 ] || fail "record 320x200 wrote: $(ls "$work/color")"
[ "$(bmp_layout "$work/color/0003.bmp")" = "320x200x24" ] || fail "changed layout: $(bmp_layout "$work/color/0003.bmp")"

# --camera aravis takes the first camera; JPEG files by default.
run record --camera aravis --frames 3 --folder "$work/first"
[ $rc -eq 0 ] || fail "record from the first camera: exit $rc: $err"
[ "$(ls "$work/first")" = "$(printf '0000.jpg\n0001.jpg\n0002.jpg')" ] || fail "first camera wrote: $(ls "$work/first")"

# stack record from the fake camera: one Grab per frame.
mkdir "$work/stack"
run stack record --camera aravis:Fake_1 --frames 3 --size 64x48 --out "$work/stack/run.bmp"
[ $rc -eq 0 ] || fail "stack record from Fake_1: exit $rc: $err"
[ "$(ls "$work/stack" | tr '\n' ' ')" = "run0001.bmp run0002.bmp run0003.bmp " ] || fail "stack record wrote: $(ls "$work/stack")"
for f in "$work"/stack/*.bmp; do
  [ "$(bmp_layout "$f")" = "64x48x8" ] || fail "stack frame $f: $(bmp_layout "$f")"
done

# The synthetic camera is still the default, and named by --camera test.
run record --camera test --frames 2 --size 32x16 --bits 24 --format bmp --folder "$work/test"
[ $rc -eq 0 ] || fail "record --camera test: exit $rc: $err"
[ "$(bmp_layout "$work/test/0001.bmp")" = "32x16x24" ] || fail "synthetic layout: $(bmp_layout "$work/test/0001.bmp")"

# Bad input: a clear message and a failing exit code, no files.
run record --camera aravis:NoSuchCamera --frames 2 --folder "$work/none"
[ $rc -eq 1 ] || fail "unknown camera: exit $rc"
grep -q "cannot open a camera 'NoSuchCamera'" <<<"$err" || fail "unknown camera message: $err"
[ -z "$(ls "$work/none" 2>/dev/null)" ] || fail "unknown camera wrote files"
run record --camera bogus --frames 2 --folder "$work/none"
[ $rc -eq 2 ] || fail "--camera bogus: exit $rc"
grep -q -- "--camera must be test, aravis or aravis:ID, not 'bogus'" <<<"$err" || fail "--camera bogus: $err"
run record --camera aravis:Fake_1 --bits 32 --frames 2 --folder "$work/none"
[ $rc -eq 1 ] || fail "--bits 32 from Fake_1: exit $rc"
grep -q 'the camera refuses --bits 32' <<<"$err" || fail "--bits 32 message: $err"
run record --camera aravis:Fake_1 --size 4000x4000 --frames 2 --folder "$work/none"
[ $rc -eq 1 ] || fail "--size 4000x4000 from Fake_1: exit $rc"
grep -q 'the camera refuses --size 4000x4000' <<<"$err" || fail "--size message: $err"
run record --camera aravis:Fake_1 --from "$work/fake" --folder "$work/none"
[ $rc -eq 2 ] || fail "--from with --camera: exit $rc"
run stack record --camera aravis:NoSuchCamera --out "$work/none/x.bmp"
[ $rc -eq 1 ] || fail "stack record from an unknown camera: exit $rc"
[ -z "$(ls "$work/none" 2>/dev/null)" ] || fail "refused recordings wrote files: $(ls "$work/none")"

echo "host camera commands: ok"
