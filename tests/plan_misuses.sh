#!/usr/bin/env bash
# plan_misuses.sh COMPILER FOLDER: fails unless each line of plan/misuses.txt, "WORDS: STATEMENTS", is
# refused with its words. FOLDER has the headers of plan/plan.json.
set -euo pipefail
tests=$(dirname "${BASH_SOURCE[0]}")
misuses=$tests/plan/misuses.txt
compiler=$1
events=$2
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
compile() {
  "$compiler" -std=c++20 -I"$tests/../include" -I"$events" -fsyntax-only "${@:2}" "$place/$1"
}

cat >"$place/uses.h" <<'END'
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

# A namespace and an event can have names of the library's own.
mkdir "$place/detail"
{
  echo '#include "uses.h"'
  echo 'void use() { shop::track(EveryType{FIRST, MIDDLE, LAST}); shop::track(shop::Optional{}); }'
  for header in "$events"/shop/*; do
    sed 's/\bshop\b/detail/g' "$header" >"$place/detail/$(basename "$header")"
    echo "#include \"detail/$(basename "$header")\""
  done
} >"$place/uses.cpp"
compile uses.cpp

# All in one file: a compiler names the line of each.
{
  echo '#include "uses.h"'
  awk '{ sub(/^[^:]*: /, ""); print "#line " NR " \"misuses\"\nvoid use" NR "() { " $0 " }" }' "$misuses"
} >"$place/misuses.cpp"
everyError=$([[ $compiler != *clang* ]] || echo -ferror-limit=0)
compile misuses.cpp $everyError 2>"$place/errors" || true
number=0
failed=0
while IFS= read -r line; do
  ((++number))
  grep -q "^misuses:$number:[0-9]*: error: .*${line%%: *}" "$place/errors" ||
    { echo "compiles, or is refused with other words: $line" && failed=1; }
done <"$misuses"
((failed == 0 && number > 30)) || { cat "$place/errors" && exit 1; }
