#!/usr/bin/env bash
# needs.sh PROGRAM ... -- COMMAND ...: runs the command; where a program is missing it names it and skips the test (77).
# A PROGRAM that begins with gst: is an element of GStreamer.
missing=()
while [ "$1" != -- ]; do
    case $1 in
        gst:*) gst-inspect-1.0 --exists "${1#gst:}" 2>/dev/null ;;
        *) command -v "$1" >/dev/null ;;
    esac || missing+=("$1")
    shift
done
shift
[ ${#missing[@]} -eq 0 ] || { echo "needs ${missing[*]}" && exit 77; }
exec "$@"
