#!/usr/bin/env bash
# The host's replay, record --from and watch commands, run as a user runs
# them from the output folder, in a temporary folder.
set -euo pipefail
host=./lumhost
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

"$host" record --frames 6 --fps 200 --size 64x48 --folder "$work/take" >/dev/null

# replay: every frame with its file name and time, in name order, wrapping.
out=$("$host" replay "$work/take" --fps 200 --frames 8)
names=$(grep -o 'take/[0-9]*\.jpg' <<<"$out" | tr '\n' ' ')
[ "$names" = "take/0000.jpg take/0001.jpg take/0002.jpg take/0003.jpg take/0004.jpg take/0005.jpg take/0000.jpg take/0001.jpg " ] ||
  fail "replay order: $names"
grep -Eq 'frame +1: .*/take/0000\.jpg  [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]+:[0-9]+:[0-9]+\.[0-9]  64x48' <<<"$out" ||
  fail "replay line: $out"
grep -q '^replayed 8 frames' <<<"$out" || fail "replay summary: $out"
back=$("$host" replay "$work/take" --fps 200 --frames 2 --backward | grep -o 'take/[0-9]*\.jpg' | tr '\n' ' ')
[ "$back" = "take/0005.jpg take/0004.jpg " ] || fail "backward replay: $back"

# Bad input: a folder without images and a missing folder are refused.
mkdir "$work/empty"
! "$host" replay "$work/empty" --frames 1 2>/dev/null || fail "replay of an empty folder succeeded"
! "$host" replay "$work/missing" 2>/dev/null || fail "replay of a missing folder succeeded"

# record --from: the folder re-recorded through the camcorder, frame by frame.
"$host" record --from "$work/take" --fps 200 --folder "$work/again" >/dev/null
[ "$(ls "$work/again" | wc -l)" -eq 6 ] || fail "record --from wrote $(ls "$work/again")"

# watch: files copied into the folder arrive once each, and are recorded.
mkdir "$work/incoming"
"$host" watch "$work/incoming" --count 3 --seconds 20 --record "$work/watched" >"$work/watch.log" &
watcher=$!
sleep 1
for i in 0 1 2; do cp "$work/take/000$i.jpg" "$work/incoming/in$i.jpg"; sleep 0.2; done
wait "$watcher" || fail "watch exited with an error: $(cat "$work/watch.log")"
for i in 0 1 2; do
  [ "$(grep -c "incoming/in$i.jpg" "$work/watch.log")" -eq 1 ] || fail "in$i.jpg not delivered once: $(cat "$work/watch.log")"
done
[ "$(ls "$work/watched" | wc -l)" -eq 3 ] || fail "watch --record wrote $(ls "$work/watched")"
echo "host commands: ok"
