#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UndefinedBehaviorSanitizer)
# and runs each one from its seed corpus in fuzz/corpus.
#   scripts/fuzz.sh [seconds per target]            time-boxed run (default 30)
#   scripts/fuzz.sh --runs N                        N executions per target
# Inputs that the fuzzer finds new go to a scratch corpus, never into the repository.
# A crash leaves its input in build/fuzz/findings and fails the script.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true

limit=(-max_total_time=30)
if [ "${1:-}" = "--runs" ]; then
  limit=(-runs="$2")
elif [ -n "${1:-}" ]; then
  limit=(-max_total_time="$1")
fi

build=build/fuzz
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DDISCOVER_FUZZ=ON -DDISCOVER_BUILD_TESTS=OFF >/dev/null
ninja -C "$build" fuzz_targets

findings="$root/$build/findings"
mkdir -p "$findings"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

for corpus in fuzz/corpus/*/; do
  name=$(basename "$corpus")
  mkdir -p "$scratch/$name"
  leaks=1
  # Qt 5.15's JSON parser loses the earlier value of a key that a document repeats (the
  # library's leak, bounded by the request's size in a one-shot process), so the target that
  # reads JSON documents runs without leak detection.
  [ "$name" = request ] && leaks=0
  echo "fuzz_$name: ${limit[*]}"
  ASAN_OPTIONS=detect_leaks=$leaks:abort_on_error=1 "$build/fuzz/fuzz_$name" "${limit[@]}" -max_len=1024 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$findings/$name-" "$scratch/$name" "$corpus" \
    2>"$scratch/$name.log" || { tail -n 60 "$scratch/$name.log" >&2; exit 1; }
  grep -E '^stat::number_of_executed_units|^Done ' "$scratch/$name.log" || true
done
