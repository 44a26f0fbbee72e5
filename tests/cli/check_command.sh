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

size=$(stat -L -c %s "$demo")
head -c $((size * 2 / 3)) "$demo" >cut.mp4
cp "$demo" track0.h264
cp "$demo" deep.m3d
head -c 5000 /dev/zero | tr '\0' '\1' >garbage.mp4
: >empty.mp4

expect 0 "320 x 180" info "$demo"
expect 0 "kivmp4 " --version
expect 2 "--help"
expect 2 "--nonsense" info --nonsense "$demo"
expect 2 "--log" --log 5 info "$demo"
expect 2 "has no track 2" packets --track 2 "$demo"
expect 3 "No such file" info absent.mp4
expect 3 "is a directory" info .
expect 3 "read from" extract track0.h264 -o .
expect 4 "garbage.mp4: is not an MP4 file" --log 0 info garbage.mp4
expect 4 "is empty" info empty.mp4
expect 2 "--count" packets --count -1 "$demo"
expect 3 'a\x1b[2J: cannot open' info $'a\033[2J'
same "a full device" "$("${kivmp4[@]}" packets "$demo" 2>&1 >/dev/full | grep -c 'standard output: cannot write')" 1

for time in "2.5|pts 225000
  track 0: 0:00:02.080, pts 187200, -0.420" "0:02.9|track 0: 0:00:03.080" "0:00:03.999|pts 359910" \
  "97200t|track 0: 0:00:01.080, pts 97200, +0.000" "50%|pts 270000
  track 0: 0:00:03.080" "1:00:00|nowhere to go"; do
  expect 0 "${time#*|}" --log 0 seek "$demo" "${time%%|*}"
done
for time in 1:60 1:2 101% 12x t 1:00:00:00 9223372036854775808t nan; do
  expect 2 "not a time" seek "$demo" "$time"
done

same "steps" "$("${kivmp4[@]}" keys "$demo" | grep -c ' +1\.000 ')" 5
same "steps backward" "$("${kivmp4[@]}" keys --backward "$demo" | grep -c ' -1\.000 ')" 5
same "level" "$("${kivmp4[@]}" info "$demo" | grep -c 'level  *1\.2$')" 1
same "level of a 3D file, the real one" "$("${kivmp4[@]}" info deep.m3d | grep -c 'level  *1\.2$')" 1
same "lines with 3D" "$("${kivmp4[@]}" info deep.m3d | grep -c 3D)" 2

expect 0 "track1.aac" extract "$demo" -o out
for stream in out/track0.h264 out/track1.aac; do
  same "$stream decodes" "$(ffmpeg -nostdin -v error -xerror -i "$stream" -f null - 2>&1)" ""
done
expect 5 "" extract cut.mp4 -o part
[ "$(stat -c %s part/track0.h264)" -gt $((size / 3)) ] || { echo "what precedes the damage is not kept"; failures=1; }

units=$(("$("${kivmp4[@]}" packets "$demo" | wc -l)" - 1))  # but for the heading
run_player() { "${kivmp4[@]/%*\/kivmp4/$player}" "$@" 2>&1; }
same "units of the example player" "$(run_player "$demo" | wc -l)" "$units"
ffmpeg -nostdin -v error -i "$demo" -c copy -movflags empty_moov+frag_keyframe fragments.mp4
# Why not, where, and what to do: never a statement about a file that cannot be judged.
printf 'some notes\n' >text.mp4
ffmpeg -nostdin -v error -i "$demo" -map 0 -map 0:a -c copy -disposition:a:1 0 languages.mp4
ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64:duration=1 -c:v libx265 -x265-params log-level=none:pools=1 hevc.mp4
mdat_box=$(printf '0x%x' $(($(grep -abo mdat cut.mp4 | head -1 | cut -d: -f1) - 4)))
for command in packets keys "seek 1"; do
  # shellcheck disable=SC2086  # a command and its time
  set -- $command
  expect 4 "fragments.mp4: moof at 0x" "$1" fragments.mp4 ${2-}
  expect 4 "ffmpeg -i fragments.mp4 -c copy" "$1" fragments.mp4 ${2-}
  expect 4 "is a text file" "$1" text.mp4 ${2-}
  expect 4 "trak[0] 'hev1' is not supported" "$1" hevc.mp4 ${2-}
done
expect 0 "trak[2] disabled" info languages.mp4
expect 0 "mdat at $mdat_box: claims" info cut.mp4
expect 5 "mdat at $mdat_box: claims" packets cut.mp4
# A pipe that nobody reads any more.
mkfifo unread
exec 9<>unread 8>unread 9<&-
same "a reader that left" "$("${kivmp4[@]}" packets "$demo" 2>&1 >&8; echo $?)" 141
exec 8>&-
same "losses of a good file" "$("${kivmp4[@]}" info "$demo" | grep -c "not played as")" 0
for case in "absent.mp4|cannot open" "garbage.mp4|not a usable MP4 file" "cut.mp4|stopped before the end" \
  "fragments.mp4|has no units to play"; do
  text=$(run_player "${case%|*}") && echo "the example player succeeds with ${case%|*}" && failures=1
  same "the example player's message" "${text##*"${case%|*}: ${case#*|}"*}" ""
done
same "README and examples/player.c" "$(sed -n '/^```c$/,/^```$/p' "$source/README.md" | sed '1d;$d' | diff - "$source/examples/player.c")" ""
exit $failures
