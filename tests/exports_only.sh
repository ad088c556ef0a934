#!/usr/bin/env bash
# exports_only.sh PREFIX LIBRARY: fails unless the library exports names, all with this prefix.
set -euo pipefail
names=$(nm --dynamic --defined-only --format=posix "$2" | cut -d ' ' -f 1)
[[ -n $names ]]
! grep -v "^$1" <<<"$names"
