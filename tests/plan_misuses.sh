#!/usr/bin/env bash
# plan_misuses.sh COMPILER FOLDER: fails unless each case of plan_misuses.cpp is refused with its
# words. FOLDER has the headers of plan/plan.json.
set -euo pipefail
tests=$(dirname "${BASH_SOURCE[0]}")
export compile="$1 -std=c++20 -I$tests/../include -I$2"
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
# Compiled once.
echo '#include "shop.h"' >"$place/all.h"
$compile -x c++-header -o "$place/all.h.$([[ $1 == *clang* ]] && echo pch || echo gch)" "$place/all.h"
compile+=" -fsyntax-only -include $place/all.h $tests/plan_misuses.cpp"

$compile -DCASE=0
refused() {
  local case=${1%%:*} words=${1#*:} said
  if said=$($compile -DCASE="$case" 2>&1); then
    echo "case $case compiles"
  elif ! grep -q "error: .*$words" <<<"$said"; then
    echo "case $case is refused without \"$words\": $said"
  else
    return 0
  fi
  return 1
}
export -f refused
cases=$(sed -nE 's|^#elif CASE == ([0-9]+) +// (.+)$|\1:\2|p' "$tests/plan_misuses.cpp")
(($(wc -l <<<"$cases") > 30))
xargs -d '\n' -P "$(nproc)" -n 1 bash -c 'refused "$0"' <<<"$cases"
