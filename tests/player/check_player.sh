#!/usr/bin/env bash
# Usage: check_player.sh PLAYER
# The player to watch, without window and loudspeaker: ten seconds in step, then seeking, stepping and winding, a slow
# device, files of pictures or sound alone. Clips are made by ffmpeg. A machine that is busy elsewhere may delay what is
# played against the clock, so the whole is tried three times: a fault shows each time.
set -eu
player=$1 script=$(realpath "$0")
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"
failures=0

make_clip() { ffmpeg -nostdin -v error -y "$@"; }
pictures() { echo "-f lavfi -i testsrc2=size=320x180:rate=25:duration=$1"; }
sound() { echo "-f lavfi -i sine=frequency=440:sample_rate=$2:duration=$1"; }
keys="-preset veryfast -keyint_min 50 -g 50 -sc_threshold 0"
# shellcheck disable=SC2046,SC2086  # several words each
{
  make_clip $(pictures 10) $(sound 10 48000) -c:v libx264 $keys -bf 0 -c:a aac -ac 2 ten.mp4
  make_clip $(pictures 40) $(sound 40 44100) -c:v libx264 $keys -bf 0 -c:a aac long.mp4
  make_clip $(pictures 4) $(sound 2 48000) -c:v mpeg4 -g 25 -c:a aac visual.mp4
  make_clip $(pictures 4) -c:v libx264 $keys -bf 2 silent.mp4
  make_clip $(sound 20 48000) -c:a aac dark.m4a
}
head -c 5000 /dev/urandom >garbage.mp4

# play NAME SECONDS CLIP ARGUMENT...: what the player tells, in NAME.
play() {
  local name=$1 seconds=$2 clip=$3
  shift 3
  timeout $((seconds + 60)) "$player" --headless "$seconds" "$@" "$clip" >"$name" 2>&1 || echo "exit code $?" >>"$name"
}

# check NAME CONDITION: of what was told, as awk sees it: shown, dropped, samples, seconds (of sound), drift (without
# its sign), stalls, position; lines counts what was written, so that messages of a decoder are seen too.
check() {
  awk '
    { lines++ }
    /^pictures shown/ { shown = $3 } /^pictures dropped/ { dropped = $3 } /^stalls/ { stalls = $2 }
    /^sound samples/ { samples = $3; seconds = substr($4, 2) + 0 } /^position/ { position = $2 + 0 }
    /^greatest drift/ { drift = $3 < 0 ? -$3 : $3 + 0 }
    END { exit !('"$2"' && lines == 6) }' "$1" && return
  printf '%s: not %s:\n' "$1" "$2"
  cat "$1"
  failures=1
}

play ten 20 ten.mp4
# Sound begins with the first picture and ends on a whole block of 1024 samples.
check ten "shown + dropped == 250 && dropped <= 12 && seconds > 9.9 && seconds < 10.1 && drift < 80 && stalls == 0 && position > 9.9"

# All of these at once: they wait most of the time.
play start 3 long.mp4 --start 20.3 --press "0:space" &
play next 4 long.mp4 --start 20.3 --press "0:space 1.5:." &
play previous 5 long.mp4 --start 20.3 --press "0:space 1.5:, 2.5:," &
play forward 4 long.mp4 --start 20.3 --press "0:space 1.5:right" &
play point 5 long.mp4 --press "0:space 0.1:@0.9 2:@0.25 3:left" &
play wind 12 long.mp4 --press "0:f 0.1:f 0.2:f 5:space" &
play back 7 long.mp4 --start 20.3 --press "0:r" &
play last 5 long.mp4 --start 39.99 --press "3:@0.5 3.1:space" &
wait
check start "position == 20.28 && shown == 1 && samples == 0"
check next "position == 22 && shown == 2"
check previous "position == 18 && shown == 3"
check forward "position == 30.28 && shown == 2"
check point "position < 0.01 && shown >= 3"
# Some ten of the twenty key frames, then the last group to its end with its two seconds of sound.
check wind "position > 39.9 && shown + dropped > 57 && shown + dropped < 67 && seconds > 1.8 && seconds < 2.6 && stalls == 0"
check back "position == 0 && shown > 6 && shown < 13"
check last "position > 19.9 && position < 20.1"

play device 4 long.mp4 --latency 1 --bandwidth 20 --press "1:@0.5" &
play slower 5 long.mp4 --latency 300 --bandwidth 0.02 &
play visual 20 visual.mp4 --press "1:@0.75" &
play silent 20 silent.mp4 --press "1:f 3:space" &
play again 9 visual.mp4 --start 3 --press "3:space" &
# From the last key frame before the place, not from the start: the whole file would take longer than there is time.
play late 9 long.mp4 --start 39.99 --bandwidth 0.15 --press "4:@0.9 4.1:space" &
play dark 4 dark.m4a --start 10 --press "1:right 1.1:left 1.2:left" &
wait
check device "position > 20.5 && position < 24 && stalls == 0 && drift < 80"
check slower "position < 3 && shown < 80"
check visual "position > 3.9 && shown + dropped > 25 && samples > 0"
check late "shown == 2 && position > 35.8 && position < 36.2"
check again "shown + dropped > 100 && position > 3.9"
check silent "shown + dropped > 50 && shown + dropped < 99 && samples == 0 && position > 3.9"
check dark "shown == 0 && seconds > 2 && seconds < 4.5 && position > 0.5 && position < 4"

for arguments in "1 garbage.mp4" "1 absent.mp4" "2 --nonsense 1 ten.mp4" "2 --start x ten.mp4" "2" "1 --headless 1 --press 1:nokey ten.mp4"; do
  code=0
  # shellcheck disable=SC2086
  timeout 20 "$player" ${arguments#?} >message 2>&1 || code=$?
  [ "$code" = "${arguments%% *}" ] && [ -s message ] && continue
  echo "player ${arguments#?}: exit code $code"
  failures=1
done
if [ $failures = 1 ] && [ "${ATTEMPT:-1}" -lt 3 ]; then
  rm -rf "$directory"
  cd /
  ATTEMPT=$((${ATTEMPT:-1} + 1)) exec "$script" "$player"
fi
exit $failures
