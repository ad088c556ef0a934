#!/usr/bin/env bash
# exports_only.sh LIBRARY: fails unless the library exports exactly its C++ and C interfaces and the
# symbols of the test kit, and stays loaded after dlclose. The functions for the kit must take 8 KB
# at most, nothing else of it may be inside, and the library's headers must not mention it.
set -euo pipefail
readelf --dynamic "$1" | grep -q 'FLAGS.*NODELETE'
names=$(nm --dynamic --defined-only --format=posix --demangle "$1" | sed '/ A /d; s/ [A-Za-z] .*//')
grep -q '^veltrano_track\|^veltrano_send' <<<"$names"
grep -q '^Veltrano::shared' <<<"$names"
grep -q 'SupportedParameterType::getIf<std::' <<<"$names"
refused() {
  if grep "$@"; then exit 1; fi
}
refused -vE '^(veltrano_|Veltrano::|.*\bveltrano::).*@@VELTRANO_1$|::Substitute::.*@@VELTRANO_TESTING$' \
  <<<"$names"

symbols=$(nm --defined-only --format=posix --radix=d "$1")
refused -E '8veltrano7testing|9Simulated|8Timeline' <<<"$symbols"
awk '/7Tracker/ { isComplete = 1 }  # local symbols, too
  /10Substitute/ && !counted[$3]++ { size += $4 }
  END {
    if (isComplete && size > 0 && size <= 8192) exit
    print "The functions for the test kit take " (isComplete ? size : "unknown") " bytes."
    exit 1
  }' <<<"$symbols"
refused --recursive --exclude='testing*.h' --word-regexp -iE 'testing|substitute|observer|hook' \
  "$(dirname "${BASH_SOURCE[0]}")/../include"
