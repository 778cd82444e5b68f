#!/usr/bin/env bash
# Merges reports into one table of tab-separated values: the last word on every input. Lines of killed runs that were
# cut short are passed over.
# Usage: merge_reports.sh REPORT ... >table.tsv
set -euo pipefail

cat -- "$@" | jq -Rrn '
    [inputs | fromjson? | objects] | group_by(.input_hex // .input) | map(last)
    | ["input", "output", "status", "frames", "seconds", "sha256", "error",
       "rate", "channels", "bits", "peak_dbfs", "lufs", "true_peak_dbtp", "snr_db", "started", "wall_seconds", "velaenc"],
      (.[] | [.input, .output, .status, .frames, .seconds, .sha256, .error,
              .source.rate, .source.channels, .source.bits, .peak_dbfs,
              .loudness.integrated_lufs, .loudness.true_peak_dbtp, .check.snr_db, .started, .wall_seconds, .velaenc])
    | @tsv'
