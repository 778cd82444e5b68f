#!/usr/bin/env bash
# same.sh PROGRAM COMMAND ... - both print the same digests of a few streams.
set -euo pipefail
expected=$("$1" few)
shift
diff <(printf '%s\n' "$expected") <("$@" few)
