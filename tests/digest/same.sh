#!/usr/bin/env bash
# same.sh PROGRAM STEP COMMAND ... - both print the same digests of every STEPth stream, and find no level that differs.
set -euo pipefail
expected=$("$1" "$2")
found=$("${@:3}" "$2")
diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found")
