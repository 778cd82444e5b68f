#!/usr/bin/env bash
# One shard of a batch as a task of a Slurm job array, on a folder that all nodes mount:
#   sbatch --array=1-SHARDS slurm_array.sh IN OUT REPORTS [VELAENC_OPTION ...]
# A task whose node dies is queued again, and --resume goes on after what is complete.
#SBATCH --job-name=velaenc
#SBATCH --cpus-per-task=1
#SBATCH --requeue
#SBATCH --open-mode=append
set -euo pipefail

in=$1 out=$2 reports=$3
shift 3
mkdir -p "$reports"
code=0
velaenc -r "$in" --output-dir "$out" --resume --quiet --jobs "${SLURM_CPUS_PER_TASK:-1}" \
    --shard "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" \
    --report "$reports/$SLURM_ARRAY_TASK_ID.jsonl" "$@" || code=$?
# Exit code 6 tells of files that cannot be encoded; the reports name them, and the task has done its work.
[ $code -eq 6 ] || exit $code
