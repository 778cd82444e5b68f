#!/usr/bin/env bash
# Runs the commands of README.md's table of recipes on four seconds, and reads back what they made.
# Usage: recipes_test.sh SOURCE VELAENC_FOLDER
set -euo pipefail

source=$(readlink -f -- "$1") PATH=$(readlink -f -- "$2"):$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
die() {
    printf '%s\n' "$*" >&2
    exit 1
}
run() { bash -euc "$1" >log 2>&1 </dev/null || die "$1: $(tail -n 5 log)"; }

# The commands of the row that begins with these words, one a line.
# shellcheck disable=SC2016 # a pattern
row() { grep -F "| $1 | " "$source/README.md" | grep -o '`[^`]*`' | tr -d '`'; }
video() { ffmpeg -v error -f lavfi -i "testsrc=size=$1:rate=25:duration=4" -an "${@:2}"; }

for rate in 48000 44100; do
    ffmpeg -v error -f lavfi -i "anoisesrc=d=4:r=$rate:a=0.3" -ac 2 "sound${rate/48000/}.wav"
done
mv sound44100.wav sound44.wav
mkdir -p tapes/1 && cp sound.wav tapes/1/a.wav && cp sound44.wav tapes/b.wav
video 640x360 -c:v mpeg2video -bf 0 video.mkv

# make ROW FRAMES RESULT ...: 4 s are 167 frames of 1152 samples at 48 kHz and 154 at 44.1 kHz.
make() {
    local command result frames commands
    commands=$(row "$1")
    while IFS= read -r command; do run "$command"; done <<<"${commands:?the README has no row for $1}"
    for result in "${@:3}"; do
        frames=$(ffprobe -v error -count_packets -select_streams a:0 -show_entries stream=codec_name,nb_read_packets \
            -of csv=p=0 "$result")
        frames=$(grep -m 1 mp2 <<<"$frames") # not in a pipe, which may end before its writer
        [ "${frames%,}" = "mp2,$2" ] || die "$1: $result has $frames instead of mp2,$2"
    done
}
# early RESULT: the sound's stamps begin 10 ms before the picture's.
early() {
    ffprobe -v error -show_entries stream=codec_type,start_time -of csv=p=0 "$1" | awk -F, '{ begin[$1] = $2 }
        END { by = begin["video"] - begin["audio"]; exit by < 0.0095 || by > 0.0105 }' || die "$1: the sound is not 10 ms early"
}
video 720x576 -target pal-dvd -f mpeg2video video.m2v
make 'a DVD' 167 movie.mpg dvd/VIDEO_TS/VTS_01_1.VOB
early movie.mpg
make 'a TS with GStreamer' 167 gst.ts
video 352x288 -target pal-vcd -f mpeg1video video.m1v
make 'a VCD' 154 movie.mpg
vcd-info --bin-file=vcd.bin 2>&1 | grep 'VCD 2.0 detected' >log || die 'no VCD'
video 480x576 -target pal-svcd -f mpeg2video -y video.m2v
make 'an SVCD' 154 movie.mpg
vcd-info --bin-file=svcd.bin 2>&1 | grep 'SVCD detected' >log || die 'no SVCD'
make 'a DVB stream' 167 dvb.ts
early dvb.ts
make 'an HLS stream' 167 live.m3u8
if command -v vela-twolame >/dev/null; then make 'MP2 in ffmpeg, SoX, VLC, ...' 167 out.mp2; fi
make 'WAV for radio' 167 radio.wav
ffmpeg -v error -i sound.wav -f s16be sound.pcm
make 'headerless PCM' 167 sound.mp2
ffmpeg -v error -i sound.wav -ac 6 surround.wav
make '5.1 with a loud front' 167 surround.mp2
make 'a stream that is proven' 167 proven.mp2
make 'a stream at broadcast loudness' 167 radio.wav
ffmpeg -v error -i sound.wav -metadata title=Title song.flac
make 'a stream that tells its title' 167 song.mp2
ffmpeg -v error -i video.mkv -i sound.wav -c:v copy -c:a ac3 video-sound.mkv
make 'the sound of a film' 167 film.mp2
make 'an archive' 167 archive/1/a.wav.mp2
[ "$(stat -c %s archive/b.wav.mp2)" -gt 100000 ] || die 'an archive: b.wav is missing'
[ "$(grep -c '"error":null' archive.jsonl)" -eq 2 ] || die "the report: $(cat archive.jsonl)"
