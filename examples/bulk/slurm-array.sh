#!/usr/bin/env bash
# A Slurm array over the files of pictures.txt; submit with: sbatch slurm-array.sh
#
# Each task takes its part of the list. A task that is requeued goes on where it was.
#SBATCH --job-name=qel
#SBATCH --array=1-16
#SBATCH --cpus-per-task=4
#SBATCH --mem=4G
#SBATCH --time=01:00:00
#SBATCH --requeue
set -eu
exec qel run --files-from pictures.txt -o 'out/{stem}.png' \
  --shard auto --jobs "$SLURM_CPUS_PER_TASK" --progress=none \
  --json "manifest-$SLURM_ARRAY_TASK_ID.json" --resume \
  negative "light brightness=20"
