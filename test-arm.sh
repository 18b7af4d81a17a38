#!/usr/bin/env bash
# Builds the tree for 32-bit ARM with 64-bit time, the camera's word size, and runs its tests in an emulator.  Then compares
# curves and lives with those of this machine's build, byte for byte.
#   ./test-arm.sh [FILTER] [SEED]
# FILTER is a regular expression over test names, SEED the first seed of the tests that draw and of the lives that are
# compared (1 if not given).  Two jobs; JOBS=N changes that.
set -euo pipefail
cd "$(dirname "$0")"

filter=${1:-.}
seed=${2:-1}
jobs=${JOBS:-2}
step() { printf '\n== %s (%s s)\n' "$*" "$SECONDS"; }

step packages
tools/setup.sh --arm
tools/arm/sysroot.sh build-arm

step build for this machine
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$jobs" --target transcripts curve_bits

step build for ARM
cmake --preset arm >/dev/null
cmake --build --preset arm --parallel "$jobs"

step symbols
CC=arm-linux-gnueabihf-gcc tools/check_symbols.sh build-arm/arm/vernierlensd build-arm/lib/libtaskshim.so.1 \
  build-arm/lib/libcourier.so.1 build-arm/lib/libtreereader.so.1

step tests in the emulator
VERNIER_TEST_SEED=$seed ctest --test-dir build-arm --parallel "$jobs" --schedule-random --output-on-failure \
  --no-tests=error --timeout 600 --tests-regex "$filter"

# Both outputs must be the same, and not empty.
compare() { # NAME
  local here=build-arm/here-$1.txt arm=build-arm/arm-$1.txt
  [ -s "$here" ] || { echo "FAILED: no $1"; exit 1; }
  diff --text "$here" "$arm" >build-arm/"$1".diff || {
    head --lines=20 build-arm/"$1".diff
    echo "FAILED: this machine and ARM differ in their $1: build-arm/$1.diff"
    exit 1
  }
  echo "$1: $(wc --lines <"$here") lines, the same"
}

step curves on both machines
tests/curve_reference.py --curves >build-arm/curve-inputs.txt
build/bin/curve_bits <build-arm/curve-inputs.txt >build-arm/here-curves.txt
build-arm/bin/curve_bits <build-arm/curve-inputs.txt >build-arm/arm-curves.txt
compare curves

step lives on both machines
build/bin/transcripts "$seed" >build-arm/here-transcripts.txt
build-arm/bin/transcripts "$seed" >build-arm/arm-transcripts.txt
compare transcripts
step done
