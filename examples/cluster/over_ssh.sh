#!/usr/bin/env bash
# Encodes a folder on several machines that mount it at the same place, over ssh and with GNU parallel.
# Usage: over_ssh.sh HOSTS SHARDS IN OUT REPORTS [VELAENC_OPTION ...]
#   HOSTS    a list of machines for parallel's --sshloginfile: one a line, "2/name" for two shards at a time
#   SHARDS   parts to cut the work into; some times as many as machines, so that a slow one does not hold up the end
#   REPORTS  a folder for the reports, one a shard
# A shard whose machine dies is tried again on another one, where --resume goes on after what is complete.
set -euo pipefail

[ $# -ge 5 ] || {
    sed -n '2,7s/^# //p' "$0" >&2
    exit 1
}
hosts=$1 shards=$2 in=$3 out=$4 reports=$5
shift 5
mkdir -p "$reports"

# Exit code 6 tells of files that cannot be encoded; trying again would not help them, and the reports name them.
printf -v encode '%q ' velaenc -r "$in" --output-dir "$out" --resume --quiet "$@"
seq "$shards" | parallel --sshloginfile "$hosts" --retries 4 --joblog "$reports/parallel.log" \
    "$encode --shard {}/$shards --report $(printf %q "$reports")/{}.jsonl; code=\$?; [ \$code = 6 ] || exit \$code"
