#!/usr/bin/env bash
# exports_only.sh LIBRARY: fails unless the library exports exactly its C++ and C interfaces and the
# symbols of the test kit, and stays loaded after dlclose.
set -euo pipefail
readelf --dynamic "$1" | grep -q 'FLAGS.*NODELETE'
names=$(nm --dynamic --defined-only --format=posix --demangle "$1" | sed '/ A /d; s/ [A-Z] .*//')
grep -q '^veltrano_track\|^veltrano_send' <<<"$names"
grep -q '^Veltrano::shared' <<<"$names"
grep -q 'SupportedParameterType::getIf<std::' <<<"$names"
! grep -vE '^(veltrano_|Veltrano::|.*\bveltrano::).*@@VELTRANO_1$|::Substitute::.*@@VELTRANO_TESTING$' \
  <<<"$names"
