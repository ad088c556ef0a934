#!/usr/bin/env bash
# plan_program.sh PROGRAM TEST: what the commands of veltrano-plan print, beside the plans; the coverage
# is that of a case of TEST, the program plan_test.
set -euo pipefail
program=$1 test=$2
plans=$(dirname "${BASH_SOURCE[0]}")/plan
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

prints() {  # prints FILE STATUS ARGUMENT...
  local status=0
  "$program" "${@:3}" >"$place/output" 2>&1 || status=$?
  ((status == $2)) || { echo "${*:3}: the status is $status" && exit 1; }
  diff "$1" "$place/output"
}

prints "$plans/differences.txt" 1 diff "$plans/older.json" "$plans/newer.json"
prints /dev/null 0 diff "$plans/older.json" "$plans/older.json"
prints "$plans/inferred.txt" 0 infer "$plans/collected.jsonl"
prints "$plans/document.md" 0 document "$plans/plan.json"

VELTRANO_PLAN_COVERAGE=$place/of/tests "$test" --gtest_filter=Worlds.TellTheirCoverage >"$place/log" ||
  { cat "$place/log" && exit 1; }
! VELTRANO_PLAN_COVERAGE=/dev/null "$test" --gtest_filter=Worlds.TellTheirCoverage >"$place/log" || exit 1
grep -q '/dev/null' "$place/log"
coverage=(coverage "$plans/plan.json" "$place/of")
prints "$plans/coverage.txt" 1 "${coverage[@]}" --fail-under 90
prints "$plans/coverage.json" 0 "${coverage[@]}" --json --fail-under 10

# Headers are remade only as needed, and those of events that are gone are removed.
generates() {  # generates STATUS PLAN
  local status=0
  echo "$2" >"$place/plan"
  "$program" generate "$place/plan" --output "$place/headers" >/dev/null 2>&1 || status=$?
  ((status == $1)) || { echo "The status of generating $2 is $status" && exit 1; }
}
shop=$place/headers/shop
plan='{"namespace":"shop","events":[{"name":"A","properties":{}}]}'
generates 0 "$plan"
touch -d 2001-01-01 "$shop/a.h"
generates 0 "$plan"
[[ $(date -r "$shop/a.h" +%Y) == 2001 ]]
generates 1 "${plan/properties/x}"
[[ -e $shop/a.h ]]
mkdir "$shop/hosts"
generates 0 '{"namespace":"shop","events":[]}'
[[ ! -e $shop/a.h ]]
echo 'int hosts;' >"$place/headers/shop.h"  # the host's own
generates 1 "$plan"
[[ $(<"$place/headers/shop.h") == 'int hosts;' && ! -e $shop/a.h ]]
