#!/usr/bin/env bash
# Merges reports into one table of tab-separated values: the last word on every input. Lines of killed runs that were
# cut short are passed over.
# Usage: merge_reports.sh REPORT ... >table.tsv
set -euo pipefail

cat -- "$@" | jq -Rrn '
    [inputs | fromjson? | objects] | group_by(.input) | map(last)
    | ["input", "output", "status", "frames", "seconds", "sha256", "error"],
      (.[] | [.input, .output, .status, .frames, .seconds, .sha256, .error])
    | @tsv'
