#!/usr/bin/env bash
# Installs what is missing, builds the normal, the sanitizer and the thread
# sanitizer variants, and runs the whole test suite on each; also builds once without the
# test suites; builds and checks the Debian packages and runs the unit suites of the arm64
# build under qemu. Run as root: the network tests build private networks out of network
# namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc)
# Clones in other folders share one compiler cache.
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true

# Prints how long a step took, so that the time CI spends stays visible.
timed() {
  local started=$SECONDS
  "$@"
  echo "== $* took $((SECONDS - started)) s"
}

# The first run on a machine also builds open62541 (see scripts/build-open62541.sh).
timed bash scripts/install-deps.sh
mkdir -p build
# The minimal Debian 12 and 13 root file systems of the package check are made (or found in
# their cache) while the builds run: debootstrap waits mostly on the network and the disk.
# The check itself waits for them (it takes the same lock) and makes them anew should this fail.
(
  started=$SECONDS
  if bash scripts/package-check.sh --prepare >build/package-roots.log 2>&1; then
    echo "== preparing the package check's root file systems took $((SECONDS - started)) s" >>build/package-roots.log
  else
    echo "== preparing the package check's root file systems failed (the check tries again)" >>build/package-roots.log
  fi
) &
# The arm64 side (cross compiler, arm64 libraries, open62541 cross-built) installs while the
# native builds and tests run: on a fresh machine its open62541 build is minutes of
# compiling that the release suite, waiting on sockets much of the time, leaves room for.
# Nothing else uses apt until the packages are built, which waits for it.
(
  started=$SECONDS
  if bash scripts/install-cross-deps.sh >build/cross-deps.log 2>&1; then
    echo "== installing the arm64 side took $((SECONDS - started)) s" >>build/cross-deps.log
  else
    echo "== installing the arm64 side failed (the package build tries again)" >>build/cross-deps.log
  fi
) &
cross_deps=$!
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

# The release run also keeps every result document the end-to-end suites produce, and
# all of them must match the result schema.
dump=$root/build/release/result-dump
rm -rf "$dump"
cmake_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
DISCOVER_RESULT_DUMP_DIR=$dump run_variant build/release
python3 tests/schema/check_documents.py --results "$dump" --min 20

# The controller's side: Debian packages for amd64 and arm64 (the first run also builds
# open62541 for arm64), both installed, used and removed on minimal Debian 12 and 13 systems,
# and the unit suites of the arm64 build under qemu.
wait "$cross_deps"
tail -n 3 build/cross-deps.log
timed bash scripts/package.sh
wait
cat build/package-roots.log
timed bash scripts/package-check.sh
timed bash scripts/cross-unit.sh

# Everything that is not a test must build without the test suites (same flags as the
# release build, so the compiler cache answers most of it).
cmake -S "$root" -B build/notests -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDISCOVER_BUILD_TESTS=OFF >/dev/null
ninja -C build/notests

cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DDISCOVER_SANITIZE=ON)
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_variant build/asan -LE nosan

cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DDISCOVER_TSAN=ON)
TSAN_OPTIONS=halt_on_error=1 run_variant build/tsan -L tsan

# Every libFuzzer target briefly (30 s each) under AddressSanitizer and UndefinedBehaviorSanitizer.
bash scripts/fuzz.sh 30
