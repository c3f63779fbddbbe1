#!/bin/sh
# An example batch script: a span of the site's archives as one NetCDF file
# per station and day on a cluster, one task of a Slurm job array per day.
# Each task makes its day's station-days one after another with
# cal_dump_days's single-job form, so a task that fails names its
# station-days in its log and can be run again alone.  Adjust the #SBATCH
# lines to the cluster; the site comes from the environment, which sbatch
# passes on:
#
#   export HERON=/data/site PROJECT=demo OPS=ops1
#   sbatch --array=0-6 slurm_cal_dump_days.sh 2026-11-21 /scratch/$USER/week
#
# makes 2026-11-21 to 2026-11-27 (task N: the first day + N).  STATIONS
# (default: every module of kites_config) and CAL_DUMP_OPTIONS (e.g.
# "-a 60") are read from the environment too.
#
#SBATCH --job-name=cal_dump_days
#SBATCH --cpus-per-task=1
#SBATCH --mem=2G
#SBATCH --time=01:00:00
#SBATCH --output=cal_dump_days_%A_%a.log
set -eu
first=${1:?the first day, YYYY-MM-DD}
dir=${2:?the folder of the files}
: "${HERON:?set HERON, PROJECT and OPS}" "${PROJECT:?set PROJECT}" "${OPS:?set OPS}"
day=$(date -u -d "$first + ${SLURM_ARRAY_TASK_ID:?run it as a job array: sbatch --array=0-N} day" +%F)
mkdir -p "$dir"
status=0
for station in ${STATIONS:-$(awk '$1 == "kites_number" { print $2 }' "$HERON/config/kites_config")}; do
  # shellcheck disable=SC2086 # the options are words
  cal_dump_days --station-day "$station" "$day" "$dir" ${CAL_DUMP_OPTIONS:-} || status=1
done
exit "$status"
