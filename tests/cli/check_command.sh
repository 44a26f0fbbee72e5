#!/usr/bin/env bash
# Usage: check_command.sh SAMPLES PLAYER COMMAND...
# The kivmp4 command as its users run it: exit codes, messages, and what it writes; and the example player.
set -u
demo=$1/demo.mp4 source=$1/.. player=$2
shift 2
kivmp4=("$@")
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
failures=0

# expect CODE PART ARGUMENT...: the command's exit code, and a part of what it writes.
expect() {
  local code=$1 part=$2 text result=0
  shift 2
  text=$("${kivmp4[@]}" "$@" 2>&1) || result=$?
  [ "$result" = "$code" ] && [[ $text == *"$part"* ]] && return
  printf 'kivmp4 %s: exit code %s, wanted %s and "%s" in:\n%s\n' "$*" "$result" "$code" "$part" "$text"
  failures=1
}

# same WHAT GOT WANTED
same() { [ "$2" = "$3" ] || { echo "$1: $2 instead of $3"; failures=1; }; }

ff() { ffmpeg -nostdin -v error "$@"; }
size=$(stat -L -c %s "$demo")
head -c $((size * 2 / 3)) "$demo" >cut.mp4
cp "$demo" track0.h264
cp "$demo" deep.m3d
head -c 5000 /dev/zero | tr '\0' '\1' >garbage.mp4
: >empty.mp4
printf 'some notes\n' >text.mp4
ff -i "$demo" -c copy -movflags empty_moov+frag_keyframe fragments.mp4
ff -i "$demo" -map 0 -map 0:a -c copy -disposition:a:1 0 languages.mp4
ff -f lavfi -i testsrc2=size=64x64:duration=1 -c:v libx265 -x265-params log-level=none:pools=1 hevc.mp4
ff -i "$demo" -c copy -an -metadata:s:v rotate=90 turned.mp4
ff -i "$demo" -c:v copy -af volume=0.5 quiet.mp4
cp "$demo" $'odd\033[2J\xff.mp4'

# What people type.
expect 0 "kivmp4 1." --version
expect 2 "kivmp4 FILE"
expect 0 "Examples:" help
expect 0 "kivmp4 seek clip.mp4" help seek
expect 2 "'extract'" extrct "$demo"
expect 2 "'--count'" packets "$demo" --cuont 3
expect 2 "unknown command 'frobnicate'" frobnicate
expect 2 "--count" packets --count -1 "$demo"
expect 2 "columns are track" packets "$demo" --columns size,colour
expect 2 "has no track 2" packets --track 2 "$demo"
for time in 1:60 1:2 101% 12x t 1:00:00:00 9223372036854775808t nan; do
  expect 2 "not a time" seek "$demo" "$time"
done
same "a terminal's colours" "$("${kivmp4[@]}" --color always "$demo" | grep -c $'\033\[1m')" 3
same "no colours in a pipe" "$("${kivmp4[@]}" "$demo" | grep -c $'\033')" 0

# info
expect 0 "320x180   25.000 fps   150 units   6 key frames (max gap 1.000 s)" "$demo"
expect 0 "High@1.2   320x180 3D" info deep.m3d
expect 0 "trak[2] disabled" info languages.mp4
expect 0 "to be turned by" info turned.mp4
expect 0 'odd\x1b[2J\xff.mp4' info odd*
expect 0 "H.264" info - <"$demo"
expect 4 "moof at 0x" info fragments.mp4
expect 3 "H.264" info absent.mp4 "$demo"

# Why not, where, and what to do: never a statement about a file that cannot be judged.
mdat_box=$(printf '0x%x' $(($(grep -abo mdat cut.mp4 | head -1 | cut -d: -f1) - 4)))
for command in info packets keys "seek 1" "extract -o none"; do
  # shellcheck disable=SC2086  # a command and its time or option
  set -- $command
  name=$1
  shift
  expect 3 "No such file" "$name" absent.mp4 "$@"
  expect 3 "is a directory" "$name" . "$@"
  expect 4 "first bytes 01 01 01 01" "$name" garbage.mp4 "$@"
  expect 4 "is empty" "$name" empty.mp4 "$@"
  expect 4 "is a text file" "$name" text.mp4 "$@"
  expect 4 "trak[0] 'hev1' is not supported" "$name" hevc.mp4 "$@"
  expect 4 "moof" "$name" fragments.mp4 "$@"
done
expect 4 "ffmpeg -i fragments.mp4 -c copy" packets fragments.mp4
expect 3 'a\x1b[2J: cannot open' info $'a\033[2J'
expect 5 "mdat at $mdat_box: claims" info cut.mp4
expect 5 "mdat at $mdat_box: claims" packets cut.mp4
expect 7 "heap of 100.0 KiB is full" --heap 100K "$demo"
expect 7 "budget of 1.0 KiB" --max-memory 1K seek "$demo" 1
same "an error for programs" "$("${kivmp4[@]}" --json packets fragments.mp4 2>/dev/null | python3 -c 'import json, sys
error = json.load(sys.stdin)["error"]; print(error["code"], error["exit"], error["path"], error["offset"] > 0)')" "fragmented 4 moof True"

# seek
for time in "2.5|pts 0:02.080 (187200)  -0.420 s" "0:02.9|nearest key frame, after the target; the one before is at 0:02.080" \
  "0:03.999|(359910 ticks)" "97200t|(97200)  +0.000 s  (a key frame at the target)" "50%|(270000 ticks)
  #0 video  sample 74 -> 75  offset 0xf7a4  pts 0:03.080" "5.9|no key frame: the last one is at 0:05.080" \
  "1:00:00|past the last unit; the track ends at 0:06.080"; do
  expect 0 "${time#*|}" seek "$demo" "${time%%|*}"
done

# keys and packets
same "steps" "$("${kivmp4[@]}" keys "$demo" | grep -c ' +1\.000 ')" 5
same "steps backward" "$("${kivmp4[@]}" keys --backward "$demo" | grep -c ' -1\.000 ')" 5
expect 0 "6 key frames, interval 1.000 s at least, 1.000 s on average, 1.000 s at most" keys --stats "$demo"
same "units of a group" "$("${kivmp4[@]}" keys --csv "$demo" | cut -d, -f1,2,7 | tail -1)" 6,125,25
same "key frames of one track" "$("${kivmp4[@]}" packets "$demo" -t 0 --sync --csv --columns sample | tr '\n' ' ')" "sample 0 25 50 75 100 125 "
same "a part" "$("${kivmp4[@]}" packets "$demo" --from 1 --to 1.1 --csv --columns pts,track | sort | tr '\n' ' ')" \
  "90000,0 90240,1 92160,1 93600,0 94080,1 96000,1 97200,0 97920,1 pts,track "
same "no units" "$("${kivmp4[@]}" packets "$demo" --count 0 --csv --columns pts)" pts

# extract
expect 0 "track1.aac: 283 units" extract "$demo" -o out
for stream in out/track0.h264 out/track1.aac; do
  same "$stream decodes" "$(ffmpeg -nostdin -v error -xerror -i "$stream" -f null - 2>&1)" ""
done
"${kivmp4[@]}" -q extract "$demo" --video -o - | cmp - out/track0.h264 || failures=1
"${kivmp4[@]}" -q extract "$demo" -t 1 --format raw -o raw
same "raw sound" "$(stat -c %s raw)" "$(($(stat -c %s out/track1.aac) - 7 * 283))"
expect 6 "out/track0.h264 exists" extract "$demo" -o out
expect 0 "" extract "$demo" -o out --force
expect 6 "is the file to read from" extract track0.h264 -o . --force
expect 2 "cannot be written as aac" extract "$demo" --video --format aac -o x
expect 0 "from 0:02.080 to 0:04.080" extract "$demo" --video --from 2.5 --to 3.5 -o part.h264
same "pictures of a part" "$(ff -xerror -i part.h264 -f framemd5 - | grep -c '^0')" 50
ff -f lavfi -i testsrc2=size=64x64:rate=10:duration=2 -c:v mpeg4 -g 5 visual.mp4
expect 0 "15 units" extract visual.mp4 --video --from 0.7 -o part.m4v
same "pictures of a part of MPEG-4 visual" "$(ff -xerror -i part.m4v -f framemd5 - | grep -c '^0')" 15
expect 5 "claims" extract cut.mp4 -o part
[ "$(stat -c %s part/track0.h264)" -gt $((size / 3)) ] || { echo "what precedes the damage is not kept"; failures=1; }
expect 6 "No space left" extract "$demo" --video -o /dev/full
(ulimit -f 40; trap '' XFSZ; "${kivmp4[@]}" extract "$demo" --video -o too-large 2>/dev/null)
same "unfinished files" "$(find . -name 'too-large*')" ""
same "a full device" "$("${kivmp4[@]}" packets "$demo" 2>&1 >/dev/full | grep -c 'standard output: cannot write')" 1

# hash and diff
if "${kivmp4[@]}" hash "$demo" >hashes; then
  same "checksum" "$(sed -n 's/.*#0.* //p' hashes)" "$(sha256sum <out/track0.h264 | cut -d' ' -f1)"
  same "checksum of a unit" "$("${kivmp4[@]}" hash --algorithm md5 --per-unit "$demo" | sed -n '/^1 0 /s///p')" \
    "$(head -c "$("${kivmp4[@]}" packets "$demo" -t 1 --count 1 --csv --columns size | tail -1)" raw | md5sum | cut -d' ' -f1)"
else
  expect 8 "libgcrypt" hash "$demo"
fi
expect 1 "only in" diff "$demo" turned.mp4
expect 1 "payload" diff "$demo" quiet.mp4
same "tracks that differ" "$("${kivmp4[@]}" diff "$demo" quiet.mp4 | grep -c differ)" 1

# check and boxes: the worst file decides.
expect 0 "nothing found" check "$demo"
expect 1 "1 error, 0 warnings" check cut.mp4 "$demo"
expect 3 "not-mp4" check absent.mp4 text.mp4
expect 0 "interleave-window" check --list-rules
expect 0 "moov/trak[1]/mdia/minf/stbl/stts  at" boxes "$demo" --path '**/stts'
expect 2 "no box matches" boxes "$demo" --path 'moov/nothing'
expect 4 "text file" boxes text.mp4

# A pipe that nobody reads any more; an interrupt while writing.
mkfifo unread
exec 9<>unread 8>unread 9<&-
same "a reader that left" "$("${kivmp4[@]}" packets "$demo" 2>&1 >&8; echo $?)" 141
exec 8>&-

units=$(("$("${kivmp4[@]}" packets "$demo" | wc -l)" - 1))  # but for the heading
run_player() { "${kivmp4[@]/%*\/kivmp4/$player}" "$@" 2>&1; }
same "units of the example player" "$(run_player "$demo" | wc -l)" "$units"
for case in "absent.mp4|cannot open" "garbage.mp4|not a usable MP4 file" "cut.mp4|stopped before the end" \
  "fragments.mp4|has no units to play"; do
  text=$(run_player "${case%|*}") && echo "the example player succeeds with ${case%|*}" && failures=1
  same "the example player's message" "${text##*"${case%|*}: ${case#*|}"*}" ""
done
# What the README shows of the example stands in it, line by line.
excerpt=$(sed -n '/^```c$/,/^```$/p' "$source/README.md" | sed '1d;$d')
[ -n "$excerpt" ] && case $(cat "$source/examples/player.c") in
  *"$excerpt"*) ;;
  *) echo "the README shows other lines than examples/player.c has" && failures=1 ;;
esac
exit $failures
