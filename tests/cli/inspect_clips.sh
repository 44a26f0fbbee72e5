#!/usr/bin/env bash
# Usage: inspect_clips.sh COMMAND...
# Clips of several encoders' settings, made by ffmpeg, for the test of the command's own reader.
set -eu
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

# clip FILE RULES ARGUMENT...: RULES are those of kivmp4 check that the clip breaks, apart by blanks.
clip() {
  local file=$1 rules=$2
  shift 2
  ffmpeg -nostdin -v error -y "$@" "$file"
  echo "$PWD/$file${rules:+ $rules}" >>clips
}

video="-f lavfi -i testsrc2=size=128x96:rate=25:duration=1.2"
sound="-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.2"
other="-f lavfi -i sine=frequency=660:sample_rate=48000:duration=1.2"
x264="-c:v libx264 -pix_fmt yuv420p -threads 1"
front="-movflags faststart"
clip last.mp4 moov-last $video $sound $x264 -g 15 -c:a aac
clip front.mp4 "" $video $sound $x264 -g 15 -bf 0 -c:a aac $front
clip baseline.mp4 "" $video $sound $x264 -profile:v baseline -g 10 -c:a aac -ac 2 $front
clip reordered.mp4 "" $video $sound $x264 -bf 2 -b_strategy 0 -g 10 -c:a aac $front
clip slices.m4v "" $video $x264 -bf 0 -slices 4 -g 20 -f mp4 $front
clip languages.mp4 disabled-track $video $sound $other -map 0 -map 1 -map 2 $x264 -g 10 -c:a aac $front
clip wave.mov unsupported-track $video $sound $x264 -g 10 -c:a aac $front
clip linear.mov unsupported-track $video $sound $x264 -g 10 -c:a pcm_s16le $front
clip logarithmic.mov unsupported-track $video $sound $x264 -g 10 -c:a pcm_alaw $front
clip visual.mp4 "" $video $sound -c:v mpeg4 -g 12 -bf 0 -c:a aac $front
clip sound.m4a "" $sound -c:a aac -ac 1 $front
clip delayed.mp4 "" -itsoffset 0.4 $video $sound $x264 -fps_mode passthrough -bf 0 -g 10 -c:a aac $front
clip hevc.mp4 unsupported-track $video $sound -c:v libx265 -x265-params log-level=none:pools=1 -c:a aac $front
clip inband.mp4 parameter-sets-inside $video $x264 -g 10 -bf 0 -bsf:v dump_extra=freq=keyframe $front
KIVMP4_CLIPS=$PWD/clips "$@" --gtest_filter='InspectClips.*'
