#!/usr/bin/env bash
# fleet_charts.sh FLEET: draws a run's charts. gnuplot only warns of a column that is missing.
set -euo pipefail
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
"$1" --applications 20 --starts-at 19h --length 1h --outage 10m..20m --output "$directory" >/dev/null 2>&1
charts=$(dirname "$0")/../tools/fleet/charts.gnuplot
warnings=$(gnuplot -e "directory='$directory'; beside='$directory'" "$charts" 2>&1) && [[ -z $warnings ]] ||
  { echo "$warnings" && exit 1; }
charts=("$directory"/*.svg)
((${#charts[@]} == 6)) && ! grep -L 'outage' "${charts[@]}" | grep .
