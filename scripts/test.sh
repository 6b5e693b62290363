#!/usr/bin/env bash
# Installs what is missing, builds the normal, the sanitizer and the thread
# sanitizer variants, and runs the whole test suite on each; also builds once
# without the test suites. Run as root: the network tests build private
# networks out of network namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc)
# Clones in other folders share one compiler cache.
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true

bash scripts/install-deps.sh
if [ -f sim/node/package-lock.json ]; then
  (cd sim/node && npm ci --no-audit --no-fund --loglevel=error)
fi

run_variant() {
  local dir=$1; shift
  local label_args=("$@")
  cmake -S "$root" -B "$dir" -G Ninja "${cmake_args[@]}" >/dev/null
  ninja -C "$dir"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${label_args[@]}")
}

cmake_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
run_variant build/release

# Everything that is not a test must build without the test suites (same flags as the
# release build, so the compiler cache answers most of it).
cmake -S "$root" -B build/notests -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDISCOVER_BUILD_TESTS=OFF >/dev/null
ninja -C build/notests

cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DDISCOVER_SANITIZE=ON)
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_variant build/asan -LE nosan

cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DDISCOVER_TSAN=ON)
TSAN_OPTIONS=halt_on_error=1 run_variant build/tsan -L tsan
