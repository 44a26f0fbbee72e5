#!/usr/bin/env bash
# Usage: check_clips.sh COMMAND...
# Clips that ffmpeg makes, through the kivmp4 command: packets, streams, winding and seeks against ffmpeg and ffprobe.
set -eu
kivmp4=("$@")
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

# same WHAT EXPECTED GOT: two files.
same() {
  cmp -s "$2" "$3" && return
  echo "$clip: $1"
  diff "$2" "$3" | head -n 5
  exit 1
}

# md5_of OPTION...: a checksum for each decoded picture, or with -c copy for each packet.
md5_of() { ffmpeg -nostdin -v error "$@" -fps_mode passthrough -f framemd5 - | grep -v '^#' | cut -d, -f6; }

# check CLIP STREAMS DELAY ARGUMENT...: one letter for each stream: h H.264, v MPEG-4 visual, a AAC, c counted but not
# described, - not counted. DELAY is the edit list's for video, in 90 kHz ticks; the arguments are ffmpeg's.
check() {
  clip=$1
  local streams=$2 delay=$3 track=0 stream kind
  shift 3
  ffmpeg -nostdin -v error -y "$@" "$clip"
  rm -rf tracks expected.* got.*
  "${kivmp4[@]}" packets "$clip" --csv --columns track,pts,dts,duration,size,flags,pos | sed '1d; s/,K,/,1,/; s/,[.],/,0,/; y/,/ /' >got.packets
  ffprobe -v error -ignore_editlist 1 -of csv -show_entries \
    packet=stream_index,pts,dts,duration,size,pos,flags:stream=index,time_base "$clip" >probed

  # Times may differ by one: the library's products are of single precision. H.264 begins with its parameter sets.
  awk -F, -v OFS=' ' -v streams="$streams" -v delay="$delay" '
    function ticks(units) { return int(units * 90000 / timescale[$2]) }
    FNR == NR { if ($1 == "stream") { split($3, base, "/"); timescale[$2] = base[2] } next }
    $1 != "packet" || (kind = substr(streams, $2 + 1, 1)) ~ /[-c]/ { next }
    {
      before = substr(streams, 1, $2)
      gsub("-", "", before)
      dts = ticks($4) + (kind == "a" ? 0 : delay)
      print $7, length(before), dts + int(($3 - $4) * 90000 / timescale[$2]), dts, ticks($5), $6, ($8 ~ /K/) + 0, $7
    }' probed probed | sort -s -n -k 1,1 | cut -d' ' -f2- >expected.packets
  awk 'FNR == NR { for (i = 1; i <= 7; i++) want[FNR, i] = $i; next }
    { for (i = 1; i <= 7; i++) {
        difference = $i - want[FNR, i]
        if (difference && !(i >= 2 && i <= 4 && difference ^ 2 == 1) && !(i == 5 && difference > 0 && !seen[$1])) {
          print "packet " FNR ", field " i ": " $i " instead of " want[FNR, i]
          exit 1
        }
      }
      seen[$1] = 1
    }' expected.packets got.packets || { echo "$clip: packets"; exit 1; }
  same "number of packets" <(wc -l <expected.packets) <(wc -l <got.packets)

  "${kivmp4[@]}" extract "$clip" -o tracks >/dev/null
  for ((stream = 0; stream < ${#streams}; stream++)); do
    kind=${streams:stream:1}
    case $kind in
      h | v)
        md5_of -ignore_editlist 1 -i "$clip" -map 0:$stream >expected.stream
        md5_of -i tracks/track$track.* >got.stream ;;
      a)
        md5_of -ignore_editlist 1 -i "$clip" -map 0:$stream -c copy >expected.stream
        md5_of -i tracks/track$track.* -c copy -bsf:a aac_adtstoasc >got.stream ;;
    esac
    [[ $kind = [hva] ]] && same "stream $stream" expected.stream got.stream
    [ "$kind" = - ] || track=$((track + 1))
  done

  # One video track with a table of key frames: winding reaches all of them, seeks to their times land on them.
  if [[ $streams =~ ^[hv][^hv]*$ ]] && awk '$1 == 0 && !$6 { found = 1 } END { exit !found }' got.packets; then
    awk '$1 == 0 && $6 { print $2 }' got.packets >expected.keys
    "${kivmp4[@]}" keys "$clip" --csv | awk -F, 'NR > 1 { print $3 }' >got.keys
    same "key frames" expected.keys got.keys
    "${kivmp4[@]}" keys "$clip" --backward --csv | awk -F, 'NR > 1 { print $3 }' | tac >got.keys
    same "key frames backward" expected.keys got.keys
    "${kivmp4[@]}" seek "$clip" $(sed 's/$/t/' expected.keys) | sed -n 's/.* #0 video.* (\([0-9]*\))  +0.000 s  (a key frame at the target)$/\1/p' >got.keys
    same "seeks" expected.keys got.keys
  fi
}

video="-f lavfi -i testsrc2=size=128x96:rate=25:duration=1.2"
sound="-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.2"
x264="-c:v libx264 -pix_fmt yuv420p -threads 1"
noise="-f lavfi -i testsrc2=size=640x480:rate=10:duration=1,noise=alls=100:allf=t"
check baseline.mp4 h 0 $video $x264 -profile:v baseline -g 12
check main.m4v h 0 $video $x264 -profile:v main -bf 0 -slices 4 -g 20 -f mp4
check reordered.mp4 ha 0 $video $sound $x264 -bf 3 -g 10 -c:a aac
check faststart.mp4 ha 0 $video $sound $x264 -g 15 -c:a aac -ac 2 -movflags faststart
check onekey.mov h 0 $video $x264 -g 300
check allkeys.mp4 ha 0 $video $sound $x264 -g 1 -c:a aac
check logarithmic.mov hc 0 $video $sound $x264 -g 10 -c:a pcm_alaw
check linear.mov h- 0 $video $sound $x264 -g 10 -c:a pcm_s16le
check wave.mov hc 0 $video $sound $x264 -g 10 -c:a aac
check mono.m4a a 0 $sound -c:a aac -ac 1
check surround.m4a a 0 $sound -c:a aac -ac 6 -ar 48000
check visual.mp4 va 0 $video $sound -c:v mpeg4 -g 12 -bf 0 -c:a aac
check many.mp4 hhaa 0 $video $sound $x264 -map 0 -map 0 -map 1 -map 1 -disposition:v default -disposition:a default \
      -g 10 -c:a aac -ar:a:1 22050
check alternatives.mp4 ha- 0 $video $sound $x264 -map 0 -map 1 -map 0 -g 10 -c:a aac
check large.mp4 ha 0 $noise $sound $x264 -preset ultrafast -qp 2 -g 5 -c:a aac
check delayed.mp4 ha 36000 -itsoffset 0.4 $video $sound $x264 -fps_mode passthrough -bf 0 -g 10 -c:a aac
