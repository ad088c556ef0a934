#!/usr/bin/env bash
# plan_misuses.sh COMPILER FOLDER: fails unless each line of plan/misuses.txt, "WORDS: STATEMENTS", is
# refused with its words. FOLDER has the headers of plan/plan.json.
set -euo pipefail
tests=$(dirname "${BASH_SOURCE[0]}")
export compile="$1 -std=c++20 -I$tests/../include -I$2"
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cat >"$place/all.h" <<'END'
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "shop.h"

using shop::EveryType;
using Lines = EveryType::Lines;

const veltrano::Date kNow;
const veltrano::URL kLink("https://example.com");
[[maybe_unused]] const std::vector<int> kNumbers{1};
[[maybe_unused]] const char* const kText = "text";

#define FIRST .text = "a", .count = 1, .number = 2.5, .flag = true
#define MIDDLE .at = kNow, .link = kLink, .source = EveryType::Source::search
#define ADDRESS .address = EveryType::Address{.city = "c"}
#define LAST .tags = {"a"}, .lines = {Lines{.sku = "b"}}, ADDRESS
END
# Compiled once.
$compile -x c++-header -o "$place/all.h.$([[ $1 == *clang* ]] && echo pch || echo gch)" "$place/all.h"
compile+=" -fsyntax-only -include $place/all.h -x c++ -"

said() {
  $compile 2>&1 <<<"void use() { $1 }"
}
refused() {
  local words=${1%%: *} statements=${1#*: } output
  if output=$(said "$statements"); then
    echo "compiles: $statements"
  elif ! grep -q "error: .*$words" <<<"$output"; then
    echo "refused without \"$words\": $statements: $output"
  else
    return 0
  fi
  return 1
}
export -f said refused
said 'shop::track(EveryType{FIRST, MIDDLE, LAST}); shop::track(shop::Optional{});'
# A namespace and an event can have names of the library's own.
mkdir "$place/detail"
for header in "$2"/shop/*; do
  sed 's/\bshop\b/detail/g' "$header" >"$place/detail/$(basename "$header")"
  said "}
#include \"$place/detail/$(basename "$header")\"
void useToo() {"
done
(($(wc -l <"$tests/plan/misuses.txt") > 30))
xargs -d '\n' -P "$(nproc)" -n 1 bash -c 'refused "$0"' <"$tests/plan/misuses.txt"
