#!/usr/bin/env bash
# Builds the tree and runs its tests.
#   ./test.sh [--preset NAME] [FILTER] [SEED]
# NAME is a CMake preset (release, debug, asan, tsan, clang; release if not given), FILTER a regular expression over test
# names, SEED the first seed of the tests that draw (1 if not given).  Two jobs; JOBS=N changes that.
set -euo pipefail
cd "$(dirname "$0")"

preset=release
if [ "${1:-}" = --preset ]; then
  preset=${2:?--preset needs a name}
  shift 2
fi
filter=${1:-.}
jobs=${JOBS:-2}

case "$preset" in
  release | debug) tools/setup.sh ;;
  *) tools/setup.sh --checks ;;
esac

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --parallel "$jobs"

build=build
[ "$preset" = release ] || build=build-$preset
export VERNIER_TEST_SEED=${2:-1}
export ASAN_OPTIONS=verify_asan_link_order=0  # the simulation is preloaded before the sanitizer
export TSAN_OPTIONS="halt_on_error=1 atexit_sleep_ms=0 ${TSAN_OPTIONS:-}"
ctest --test-dir "$build" --parallel "$jobs" --schedule-random --output-on-failure --no-tests=error \
  --timeout 300 --tests-regex "$filter"
