#!/usr/bin/env bash
# consumers.sh BUILD [all]: uses the library as hosts do, in the most common ways or in all of them.
# Installs BUILD, which has a shared library, and a static one into empty prefixes and moves them;
# then builds hosts against both in many ways, and against BUILD's Debian packages if there are any.
# Each host sends an event to a collector, which shows where it has its version from.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [[ -z ${VELTRANO_COLLECTOR_PORT:-} ]]; then
  place=$(mktemp -d)
  trap 'rm -rf "$place"' EXIT
  export place
  "$root/scripts/with-collector" "$1/bin/veltrano-collector" --output "$place/records" -- \
    "${BASH_SOURCE[0]}" "$@"
  exit
fi
host=$root/tests/consumers/host
export root host
strict='-O2 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror'

# The library's flags: flags shared|static PACKAGE --cflags|--libs
flags() {
  local static=
  [[ $1 == shared ]] || static=--static
  PKG_CONFIG_PATH=$place/$1/$lib/pkgconfig pkg-config ${static:+"$static"} "$3" "$2"
  [[ $3 == --cflags || $1 == static ]] || echo "-Wl,-rpath,$place/shared/$lib"
}

# sends NAME PROGRAM...: fails unless the program sends its event, NAME.
sends() {
  "${@:2}" "$VELTRANO_COLLECTOR_HOST:$VELTRANO_COLLECTOR_PORT" "$VELTRANO_COLLECTOR_CERTIFICATE" "$1"
}

# program EXTENSION COMPILER FLAG...: compiles the host once, and links it with both libraries.
program() {
  local name="${*:2:4}" file library
  file=$(mktemp "$place/XXXXXX")
  "$2" $strict "${@:3}" $(flags shared veltrano --cflags) -c -o "$file.o" "$host.$1"
  for library in shared static; do
    "$2" -o "$file" "$file.o" $(flags $library veltrano --libs)
    sends "$library: $name" "$file"
  done
}

# plugin COMPILER: a plug-in in C that a program loads, and that exports none of the library.
plugin() {
  local library
  for library in shared static; do
    "$1" $strict -fPIC -shared $(flags $library veltrano --cflags) -o "$place/$library.so" \
      "$host.c" $(flags $library veltrano --libs)
    sends "$library: plug-in" python3 -c 'import ctypes, sys
place = sys.argv.pop(1)
arguments = (ctypes.c_char_p * len(sys.argv))(*map(str.encode, sys.argv))
sys.exit(ctypes.CDLL(place).main(len(sys.argv), arguments))' "$place/$library.so"
  done
  ! nm --dynamic --defined-only "$place/static.so" | grep -i veltrano
}

# tests CC CXX shared|static: the example of a host's tests, with the CMake package, and in C with
# pkg-config.
tests() {
  local build=$place/tests_$3
  cmake -S "$root/examples/host_tests" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$place/$3" \
    -DCMAKE_C_COMPILER="$1" -DCMAKE_CXX_COMPILER="$2" -DCMAKE_BUILD_TYPE=Debug
  cmake --build "$build"
  ctest --test-dir "$build" --output-on-failure --no-tests=error
  "$1" -std=c99 $(flags "$3" veltrano_testing --cflags) -o "$build/c_checkout" \
    "$root/examples/host_tests/checkout_test.c" $(flags "$3" veltrano_testing --libs)
  "$build/c_checkout"
}

# plan PREFIX: the example of a tracking plan, and how much of it its tests cover.
plan() {
  local build=$place/plan source=$place/plan_source percent
  percent=$(sed -n 's/^# .*--fail-under //p' "$root/examples/plan/CMakeLists.txt")
  cp -r "$root/examples/plan" "$source"
  cmake -S "$source" -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$place/$1"
  cmake --build "$build"
  VELTRANO_PLAN_COVERAGE=$build/coverage ctest --test-dir "$build" --output-on-failure \
    --no-tests=error
  "$place/$1/bin/veltrano-plan" coverage "$root/examples/plan/plan.json" "$build/coverage" \
    --fail-under "$percent"
  # Another plan is noticed by the next build.
  sed -i '/"seconds"/s/"number", "minimum": 0/"string"/' "$source/plan.json"
  ! cmake --build "$build"
}

# first PREFIX EXTENSION PROGRAM: builds a first program with the README's CMakeLists.txt, or a C
# program with the same for C alone.
first() {
  local source
  source=$(mktemp -d "$place/XXXXXX")
  cp "$root/examples/$3" "$source/player.$2"
  sed -n '/^```cmake$/,/^```$/{//!p}' "$root/README.md" >"$source/CMakeLists.txt"
  [[ $2 == cpp ]] || sed -i "s/ CXX/ C/; s/player\.cpp/player.$2/" "$source/CMakeLists.txt"
  cmake -S "$source" -B "$source/build" -G Ninja -DCMAKE_PREFIX_PATH="$place/$1"
  cmake --build "$source/build"
  "$source/build/player" "$VELTRANO_COLLECTOR_HOST:$VELTRANO_COLLECTOR_PORT" \
    "$VELTRANO_COLLECTOR_CERTIFICATE"
}

# The first program in Objective-C, with pkg-config.
objective_c() {
  clang $(flags shared veltrano_objc --cflags) -o "$place/objective_c" "$root/examples/objc_host.m" \
    $(flags shared veltrano_objc --libs)
  "$place/objective_c" "$VELTRANO_COLLECTOR_HOST:$VELTRANO_COLLECTOR_PORT" \
    "$VELTRANO_COLLECTOR_CERTIFICATE"
}

# A host that contains the library's sources, after its installation.
subproject() {
  local build=$place/subproject
  cmake -S "$root/tests/consumers" -B "$build" -G Ninja -DVELTRANO="$root" -DCMAKE_BUILD_TYPE=None
  cmake --build "$build" --target player
  cmake --install "$build" --prefix "$place/player"
  rm -r "$build"
  sends "subproject" "$place/player/bin/player"
}

# suppressed PROGRAM...: runs a program under a sanitizer, with the suppressions.
suppressed() {
  local run=()
  ! setarch -R true 2>/dev/null || run=(setarch -R)
  TSAN_OPTIONS=suppressions=$place/shared/share/veltrano/tsan.supp "${run[@]}" "$@"
}

# A host under ThreadSanitizer, which the suppressions keep quiet.
sanitized() {
  "$1" -fsanitize=thread -g -O1 -std=c++17 $(flags shared veltrano --cflags) -o "$place/tsan_$1" \
    "$host.cpp" $(flags shared veltrano --libs)
  sends "shared: tsan $1" suppressed "$place/tsan_$1"
}

# sanitized_tests CC CXX SANITIZER: the example of a host's tests.
sanitized_tests() {
  local tests=$root/examples/host_tests file
  file=$(mktemp "$place/XXXXXX")
  "$2" -std=c++17 -fsanitize="$3" -fno-sanitize-recover=all -g1 -o "$file" \
    $(flags shared veltrano_testing --cflags) "$tests/application.cpp" "$tests/checkout_test.cpp" \
    -lgtest_main -lgtest $(flags shared veltrano_testing --libs)
  suppressed "$file"
  "$1" -std=c99 -fsanitize="$3" -fno-sanitize-recover=all -g1 -o "$file" \
    $(flags shared veltrano_testing --cflags) "$tests/checkout_test.c" \
    $(flags shared veltrano_testing --libs)
  suppressed "$file"
}

# Loads the library at its new place.
load() {
  python3 "$root/tests/c_interface_test.py" "$place/shared/$lib/libveltrano.so" \
    "$1/bin/veltrano-collector"
}

# consumer LINE: runs a line of the table and prints how long it took.
consumer() {
  local log start=$SECONDS
  log=$(mktemp "$place/XXXXXX")
  if ! bash -euxo pipefail -c "$1" >"$log" 2>&1; then
    echo "FAILED: $1"
    cat "$log"
    return 1
  fi
  printf '%3d s  %s\n' "$((SECONDS - start))" "$1"
}
export strict
export -f flags sends program plugin tests plan first objective_c subproject suppressed sanitized
export -f sanitized_tests load consumer

cmake --install "$1" --prefix "$place/first"
mv "$place/first" "$place/shared"
lib=$(cd "$place/shared" && dirname "$(find . -name libveltrano.so -printf %P)")
export lib
sed -i 's|<string>.*<|<string>from the bundle<|' "$place/shared/$lib/veltrano/Veltrano.bundle/Info.plist"

cmake -S "$root" -B "$1/static" -G Ninja -DBUILD_SHARED_LIBS=OFF -DVELTRANO_DEVELOPER=OFF \
  -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_LIBDIR="$lib"
cmake --build "$1/static"
cmake --install "$1/static" --prefix "$place/second"
mv "$place/second" "$place/static"

more=("first shared cpp first_program.cpp")
for package in "$1"/*.deb; do [[ ! -e $package ]] || dpkg -x "$package" "$place/packages"; done
[[ ! -e $place/packages ]] || more+=("first packages/usr cpp first_program.cpp")
[[ ! -e $place/shared/$lib/pkgconfig/veltrano_objc.pc ]] || more+=(objective_c)

common='subproject
tests gcc g++ shared
load '$1'
plan shared
first static c c_host.c
program cpp g++ -std=c++17
program cpp clang++ -std=c++20 -fno-exceptions -fno-rtti
program c gcc -std=c89
plugin gcc
sanitized g++'
rare='tests clang clang++ static
program cpp g++ -std=c++20 -fno-exceptions -fno-rtti
program cpp g++ -std=c++23
program cpp clang++ -std=c++17 -fno-exceptions -fno-rtti
program cpp clang++ -std=c++20
program cpp clang++ -std=c++2b
program c gcc -std=c99
program c clang -std=c89 -Wno-c99-extensions
program c clang -std=c99
sanitized clang++
sanitized_tests gcc g++ address,undefined
sanitized_tests gcc g++ thread
sanitized_tests clang clang++ address,undefined
sanitized_tests clang clang++ thread'
[[ ${2:-} == all ]] || rare=
printf '%s\n' "$common" "${more[@]}" ${rare:+"$rare"} |
  xargs -d '\n' -P "$(nproc)" -n 1 bash -c 'consumer "$0"'

# Each event has the version of its library's bundle, or without one the version compiled in.
version=$(PKG_CONFIG_PATH=$place/static/$lib/pkgconfig pkg-config --modversion veltrano)
unexpected=$(sed -n '/"event":"shared/{/"lib_version":"from the bundle"/!p}
  /"event":"\(static\|subproject\)/{/"lib_version":"'"$version"'"/!p}' "$place/records")
[[ -s $place/records && -z $unexpected ]] || { echo "$unexpected" && exit 1; }
