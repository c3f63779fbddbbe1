#!/bin/sh
# cal_dump_days: a span of the site's archives as one NetCDF file per
# station and day, DIR/<station>_<YYYYMMDD>.nc, the station-days run side by
# side by GNU parallel.  A station is a module of kites_config; each
# station-day is one `cal_dump -F NETCDF -m STATION` over that UTC day.
#
#   cal_dump_days -s FIRST_DAY [-e END_DAY] -o DIR [-j JOBS] [-m STATION]...
#                 [-- CAL_DUMP_OPTION...]
#   cal_dump_days --station-day STATION DAY DIR [CAL_DUMP_OPTION...]
#
# The second form is the one job that the first hands to parallel; it may
# be run by hand to redo one station-day.  See cal_dump_days.1.
set -eu

me=cal_dump_days

# The usage, on standard error and with status 1 unless asked for (-h,
# --help).
usage() {
  [ "${1:-1}" -eq 0 ] || exec >&2
  cat <<EOF
Usage: $me -s FIRST_DAY [-e END_DAY] -o DIR [-j JOBS] [-m STATION]... [-- CAL_DUMP_OPTION...]
       $me --station-day STATION DAY DIR [CAL_DUMP_OPTION...]
  -s day     first day, YYYY-MM-DD (UTC)
  -e day     end day, not included (default: the day after the first)
  -o dir     folder of the files, STATION_YYYYMMDD.nc (made if missing)
  -j jobs    station-days at once (default: the number of processors)
  -m station a module of the site; repeat for several (default: every
             module of kites_config)
  -h, --help this text; --version the version
Options after -- go to every cal_dump.  The site is \$HERON/projects/\$PROJECT/\$OPS;
cal_dump is \$CAL_DUMP, or the one beside this program, or on the PATH.
EOF
  exit "${1:-1}"
}

fail() {
  echo "$me: $*" >&2
  exit 1
}

# The day as YYYY-MM-DD when it is a real one, else nothing.
checkDay() {
  case $1 in
    [0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]) ;;
    *) return 0 ;;
  esac
  [ "$(date -u -d "$1" +%F 2>/dev/null || true)" = "$1" ] && echo "$1"
  return 0
}

nextDay() { date -u -d "$1 + 1 day" +%F; }

# The cal_dump to run.
calDump() {
  if [ -n "${CAL_DUMP:-}" ]; then
    echo "$CAL_DUMP"
  elif [ -x "$(dirname "$0")/cal_dump" ]; then
    echo "$(dirname "$0")/cal_dump"
  else
    echo cal_dump
  fi
}

# One station-day: its file written, or a day without samples (both end 0),
# or a failure with cal_dump's messages (ends 1).  One line on standard
# output or error says which.
stationDay() {
  [ $# -ge 3 ] || usage
  station=$1 day=$2 dir=$3
  shift 3
  [ -n "$(checkDay "$day")" ] || fail "$station $day: the day is not a date YYYY-MM-DD"
  file=$dir/${station}_$(echo "$day" | tr -d -).nc
  status=0
  messages=$("$(calDump)" -F NETCDF -m "$station" -s "${day}T00:00:00Z" -e "$(nextDay "$day")T00:00:00Z" \
    -o "$file" "$@" 2>&1 >/dev/null) || status=$?
  if [ "$status" -eq 0 ]; then
    echo "$station $day: written $file"
  elif [ "$status" -eq 1 ] && echo "$messages" | grep -q '^cal_dump: no samples between '; then
    echo "$station $day: no samples"
  else
    # cal_dump's own lines say why; without any, the last lines it wrote.
    why=$(echo "$messages" | grep 'cal_dump: ' || echo "$messages" | tail -n 3)
    echo "$station $day: FAILED (status $status): $(echo "$why" | tr '\n' ' ')" >&2
    return 1
  fi
}

case ${1:-} in
  --station-day)
    shift
    stationDay "$@"
    exit
    ;;
  --help) usage 0 ;;
  --version)
    # The package's version is the cal_dump's it runs.
    version=$("$(calDump)" --version) || fail "cannot run $(calDump) --version"
    echo "$me ${version#cal_dump }"
    exit 0
    ;;
esac

first='' end='' dir='' jobs='' stations=''
while getopts s:e:o:j:m:h opt; do
  case $opt in
    s) first=$OPTARG ;;
    e) end=$OPTARG ;;
    o) dir=$OPTARG ;;
    j) jobs=$OPTARG ;;
    m) stations="$stations $OPTARG" ;;
    h) usage 0 ;;
    *) usage ;;
  esac
done
shift $((OPTIND - 1))
[ -n "$first" ] && [ -n "$dir" ] || usage
[ -n "$(checkDay "$first")" ] || fail "-s: the first day is not a date YYYY-MM-DD: \"$first\""
[ -n "$end" ] || end=$(nextDay "$first")
[ -n "$(checkDay "$end")" ] || fail "-e: the end day is not a date YYYY-MM-DD: \"$end\""
[ "$(echo "$end" | tr -d -)" -gt "$(echo "$first" | tr -d -)" ] ||
  fail "the end day $end is not after the first day $first"
case ${jobs:-1} in
  '' | *[!0-9]* | 0*) fail "-j: the number of jobs is a whole number from 1, not \"$jobs\"" ;;
esac
[ -n "$jobs" ] || jobs=$(nproc)
command -v parallel >/dev/null || fail "GNU parallel is not installed (Debian: apt-get install parallel)"
if [ -z "$stations" ]; then
  [ -n "${HERON:-}" ] && [ -n "${PROJECT:-}" ] && [ -n "${OPS:-}" ] ||
    fail "set HERON, PROJECT and OPS: the site's folder is \$HERON/projects/\$PROJECT/\$OPS"
  modules=$HERON/config/kites_config
  [ -r "$modules" ] || fail "$modules: cannot read the site's modules"
  stations=$(awk '$1 == "kites_number" { print $2 }' "$modules")
  [ -n "$stations" ] || fail "$modules: the site has no module"
fi
mkdir -p -- "$dir" || fail "$dir: cannot make the folder"

joblog=$(mktemp) && report=$(mktemp) || fail "cannot make a temporary file"
trap 'rm -f "$joblog" "$report"' EXIT
# Every station for every day, as "station day" lines.
day=$first
while [ "$day" != "$end" ]; do
  for station in $stations; do echo "$station $day"; done
  day=$(nextDay "$day")
done | parallel --will-cite -j "$jobs" --colsep ' ' --joblog "$joblog" -q \
  sh "$0" --station-day '{1}' '{2}' "$dir" "$@" | tee "$report" || true

# The job log: a header line, then one line per job with its exit status
# and the signal that ended it in the seventh and eighth columns.
total=$(($(wc -l <"$joblog") - 1))
failed=$(awk 'NR > 1 && ($7 != 0 || $8 != 0)' "$joblog" | wc -l)
[ "$total" -gt 0 ] || fail "parallel ran no job"
written=$(grep -c ': written ' "$report" || true)
empty=$(grep -c ': no samples$' "$report" || true)
echo "$me: $total station-days: $written written, $empty without samples, $failed failed" >&2
[ "$failed" -eq 0 ]
