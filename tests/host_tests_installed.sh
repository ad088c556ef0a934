#!/usr/bin/env bash
# host_tests_installed.sh BUILD CC CXX: installs BUILD into an empty prefix, then builds
# examples/host_tests against it with these compilers and runs it.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

cmake --install "$1" --prefix "$place/prefix"
cmake -S "$root/examples/host_tests" -B "$place/build" -G Ninja -DCMAKE_PREFIX_PATH="$place/prefix" \
  -DCMAKE_C_COMPILER="$2" -DCMAKE_CXX_COMPILER="$3" -DCMAKE_BUILD_TYPE=Debug
cmake --build "$place/build"
ctest --test-dir "$place/build" --output-on-failure --no-tests=error

# The C tests once more, with pkg-config instead of CMake.
pkgconfig=$(dirname "$(find "$place/prefix" -name veltrano_testing.pc)")
read -ra flags < <(PKG_CONFIG_PATH=$pkgconfig pkg-config --cflags --libs veltrano_testing)
"$2" -std=c99 -o "$place/c_checkout" "$root/examples/host_tests/checkout_test.c" "${flags[@]}" \
  -Wl,-rpath,"$(dirname "$pkgconfig")"
"$place/c_checkout"
