#!/usr/bin/env bash
# Programs under the launcher write velaenc's bytes. Usage: programs_test.sh BUILD ffmpeg|refusals|sox|gstreamer|vlc|launcher
set -euo pipefail

build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
input=/usr/share/sounds/alsa/Front_Center.wav
library=$build/lib/vela-twolame/libtwolame.so.0
as=() # what the program runs under
export GST_REGISTRY=$work/registry GST_REGISTRY_FORK=no

die() {
    printf '%s\n' "$*" >&2
    exit 1
}

# under PROGRAM ARGS ...: runs it with the library, and makes sure that it loaded this one and no other.
under() {
    local status=0 loaded
    rm -f "$work"/ld.*
    "${as[@]}" env LD_DEBUG=files LD_DEBUG_OUTPUT="$work/ld" "$build/bin/vela-twolame" "$@" \
        >"$work/log" 2>&1 </dev/null || status=$?
    loaded=$(cat "$work"/ld.* 2>/dev/null | sed -n 's/.*calling init: \(.*libtwolame\.so.*\)/\1/p' | sort -u)
    [ "$(readlink -f "${loaded:-/}")" = "$(readlink -f "$library")" ] || die "$1 loaded '$loaded'"
    return "$status"
}

# velaenc OUT ARGS ...: what the stream should be. Like the interface it marks it as an original, unless told otherwise.
expect() {
    local out=$1
    shift
    "$build/bin/velaenc" --quiet --overwrite --model tuned --original 1 "$@" "$out" 2>/dev/null
}

pcm() { # OUT RATE CHANNELS: a piece of the recording, as samples of another rate where that is asked for
    ffmpeg -v error -nostdin -y -ss 0.3 -i "$input" -t 0.4 -af 'volume=0.9' -ar "$2" -ac "$3" -c:a pcm_s16le "$1"
}

# All rates and modes from 64 to 384 kbit/s, a run for a rate and a number of channels.
ffmpeg_test() {
    local rate channels each mode
    for rate in 32000 44100 48000; do
        for channels in 1 2; do
            local outputs=() all=({stereo,joint_stereo,dual_channel,mono}.{64,80,96,112,128,160,192,224,256,320,384})
            pcm "$work/in.wav" "$rate" "$channels"
            for each in "${all[@]}"; do
                outputs+=(-c:a libtwolame -b:a "${each#*.}k" -mode "${each%.*}" -original 1 "$work/$each.mp2")
            done
            under ffmpeg -v error -nostdin -y -i "$work/in.wav" "${outputs[@]}" || die "$(cat "$work/log")"
            for each in "${all[@]}"; do
                mode=${each%.*}
                expect "$work/expected" --mode "${mode%_*}" --bitrate "${each#*.}" "$work/in.wav"
                cmp "$work/expected" "$work/$each.mp2" || die "$rate Hz, $channels channels to $each"
            done
        done
    done
}

# What is refused ends in ffmpeg's own words, with nothing written.
refusals_test() {
    local options
    while read -ra options; do
        ! under ffmpeg -nostdin -y -i "$input" -c:a libtwolame "${options[@]}" "$work/out.mp2" || die "ffmpeg takes ${options[*]}"
        grep -Eq 'Error (initializing output stream|while opening encoder)' "$work/log" || die "$(cat "$work/log")"
        [ ! -s "$work/out.mp2" ] || die "ffmpeg ${options[*]} wrote something"
    done <<'ROWS'
-ar 22050
-q:a 3
-energy_levels 1
-b:a 100k
-mode stereo -b:a 32k
ROWS
}

sox_test() {
    under sox -D "$input" -C 64 "$work/out.mp2" || die "$(cat "$work/log")"
    expect "$work/expected" --bitrate 64 "$input"
    cmp "$work/expected" "$work/out.mp2"
}

gstreamer_test() {
    ffmpeg -v error -nostdin -i "$input" -ac 2 -f s16le "$work/pcm"
    under gst-launch-1.0 -q filesrc location="$work/pcm" ! rawaudioparse pcm-format=s16le sample-rate=48000 num-channels=2 \
        ! twolamemp2enc bitrate=128 mode=joint psymodel=1 error-protection=true original=false \
        ! filesink location="$work/out.mp2" || die "$(cat "$work/log")"
    expect "$work/expected" --raw --rate 48000 --channels 2 --format s16 --bitrate 128 --mode joint --model standard \
        --crc --original 0 "$work/pcm"
    cmp "$work/expected" "$work/out.mp2"
}

# VLC will not run as root, and quits before it has handed over the last frames. With one channel its module reads
# beyond its own input.
vlc_test() {
    [ "$(id -u)" -ne 0 ] || as=(setpriv --reuid=65534 --regid=65534 --clear-groups)
    export HOME=$work
    chmod 777 "$work"
    ffmpeg -v error -nostdin -i "$input" -ac 2 "$work/in.wav"
    chmod 644 "$work/in.wav"
    under cvlc -q -I dummy "$work/in.wav" vlc://quit --sout \
        "#transcode{vcodec=none,acodec=mp2,aenc=twolame,ab=192,channels=2,samplerate=48000}:std{access=file,mux=raw,dst=$work/out.mp2}" ||
        die "$(cat "$work/log")"
    expect "$work/expected" --bitrate 192 "$work/in.wav"
    local size missing
    size=$(stat -c %s "$work/out.mp2")
    missing=$(($(stat -c %s "$work/expected") - size))
    [ "$missing" -le $((4 * 576)) ] || die "VLC's stream lacks $missing bytes"
    cmp -n "$size" "$work/expected" "$work/out.mp2"
}

launcher_test() {
    local words status arguments
    while IFS='|' read -r status words arguments; do
        read -ra arguments <<<"$arguments"
        local result=0
        env "${arguments[@]}" >"$work/log" 2>&1 || result=$?
        grep -q -e "$words" "$work/log" || result="$result without the words"
        [ "$result" = "$status" ] || die "${arguments[*]}: $result: $(cat "$work/log")"
    done <<ROWS
0|^$build/lib/vela-twolame\$|-u LD_LIBRARY_PATH $build/bin/vela-twolame printenv LD_LIBRARY_PATH
0|^$build/lib/vela-twolame:/there\$|LD_LIBRARY_PATH=/there $build/bin/vela-twolame -- printenv LD_LIBRARY_PATH
0|Usage: vela-twolame|$build/bin/vela-twolame --help
1|PROGRAM is required|$build/bin/vela-twolame
1|--no is no option|$build/bin/vela-twolame --no
1|'loud' and should be standard or tuned|VELA_MODEL=loud $build/bin/vela-twolame true
127|no program 'nobody-has-this'|$build/bin/vela-twolame nobody-has-this
2|No such file|$build/bin/vela-twolame ls /nobody-has-this
ROWS
}

"$2_test"
