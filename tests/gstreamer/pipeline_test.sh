#!/usr/bin/env bash
# Whole pipelines, judged by velaenc and ffmpeg. Usage: pipeline_test.sh VELAENC streams|settings|containers|hour
set -euo pipefail

velaenc=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
launch() { gst-launch-1.0 -q "$@" ! filesink location="$work/out"; }

# velaenc writes the same bytes for the same samples.
streams() {
    local format rate channels properties options
    head -c 150000 "$velaenc" >"$work/pcm"
    while IFS='|' read -r format rate channels properties options; do
        read -ra properties <<<"$properties"
        read -ra options <<<"$options"
        launch filesrc location="$work/pcm" blocksize=1001 ! rawaudioparse pcm-format="${format}le" \
            sample-rate="$rate" num-channels="$channels" ! velamp2enc "${properties[@]}"
        "$velaenc" --quiet --raw --format "$format" --rate "$rate" --channels "$channels" --force \
            "${options[@]}" "$work/pcm" "$work/expected" 2>/dev/null
        cmp "$work/expected" "$work/out"
    done <<'ROWS'
s16|44100|2||
s24|48000|2|preset=dvd bitrate=192 mode=joint|--preset dvd --bitrate 192 --mode joint
f32|32000|1|crc=true copyright=true flush-tail=true|--crc --copyright 1 --flush-tail
s24|48000|1|layer=1 emphasis=j17 align=true|--layer 1 --emphasis j17 --align
s16|48000|2|mode=dual crc=false preset=dvb layer=1 original=true|--mode dual --no-crc --preset dvb --layer 1 --original 1
s16|48000|1|preset=dvhs private=true align=true|--preset dvhs --private 1 --align
s16|48000|1|preset=micromv mode=mono emphasis=50/15|--preset micromv --mode mono --emphasis 50/15
s16|48000|2|model=tuned mode=joint|--model tuned --mode joint
ROWS
}

# Caps follow the settings; what is wrong with them is said; nothing stays alive behind the end.
settings() {
    local properties words
    while IFS='|' read -r properties words; do
        read -ra properties <<<"$properties"
        GST_TRACERS=leaks GST_DEBUG=GST_TRACER:7 gst-launch-1.0 -v audiotestsrc num-buffers=9 ! audio/x-raw,rate=32000,channels=1 ! audioconvert \
            ! audioresample ! velamp2enc "${properties[@]}" ! fakesink async=false >"$work/log" 2>&1 || true
        ! grep 'object-alive, type-name=(string)[A-Z]' "$work/log" || exit 1
        grep -q "$words" "$work/log" || { cat "$work/log" && echo "velamp2enc ${properties[*]}: no $words" && exit 1; }
    done <<'ROWS'
preset=vcd|enc0.GstPad:src: caps = .*, layer=(int)2, channels=(int)2, rate=(int)44100
bitrate=100|ERROR: .*A025:
mode=stereo bitrate=32|Layer II stereo has 64, 80, 96
preset=dvd crc=false|WARNING: .*A014:
bitrate=320|WARNING: .*the standard has no 320 kbit/s
ROWS
}

# Containers keep every byte, and encodebin takes this element by itself.
containers() {
    local layer muxer source=(audiotestsrc wave=saw num-buffers=100 ! 'audio/x-raw,rate=48000,channels=2')
    for layer in 1 2; do
        launch "${source[@]}" ! encodebin profile=audio/mpeg,mpegversion=1,layer=$layer
        mv "$work/out" "$work/expected"
        for muxer in identity mpegtsmux mpegpsmux matroskamux 'rtpmpapay ! rtpmpadepay'; do
            read -ra muxer <<<"$muxer"
            launch "${source[@]}" ! velamp2enc layer=$layer ! "${muxer[@]}"
            ffmpeg -v error -nostdin -i "$work/out" -map 0:a -c copy -f data - | cmp "$work/expected"
        done
    done
}

# An hour at 44.1 kHz in a transport stream: each stamp within a tick of 90 kHz of where its samples are.
hour() {
    launch audiotestsrc samplesperbuffer=1152 num-buffers=137812 ! audio/x-raw,rate=44100,channels=1,format=S16LE \
        ! velamp2enc bitrate=64 ! mpegtsmux
    ffprobe -v error -show_entries packet=pts -of default=nk=1:nw=1 "$work/out" | awk '
        NR == 1 { start = $1 }
        NR > 1 { off = $1 - start - (1152 * (NR - 1) - 481) * 90000 / 44100 }
        off < -1 || off > 1 { print "frame " NR - 1 " is off by " off " ticks"; exit 1 }
        END { if (NR != 137812) { print NR " frames"; exit 1 } }'
}

"$2"
