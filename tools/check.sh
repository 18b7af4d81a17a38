#!/usr/bin/env bash
# The static checks: format, clang-tidy, borders between the rooms, symbols that the simulated clock must know.
#   tools/check.sh [format|tidy|borders|symbols|proportion]...     all of them if none is named
# Needs a build of the release preset.
set -euo pipefail
cd "$(dirname "$0")/.."

sources() { git ls-files --cached --others --exclude-standard -- "$@" | grep --extended-regexp '\.(c|cpp|h)$'; }

check_format() {
  sources src platform simcamera tests tools bench | xargs clang-format --dry-run -Werror
}

check_tidy() {
  sources src | grep '\.cpp$' | xargs --max-procs=2 --max-args=4 clang-tidy --quiet -p build 2>/dev/null
}

# src/ knows the platform headers and POSIX, never the simulated camera; nothing but tests and simcamera knows both.
check_borders() {
  local failed=0
  local lines
  lines=$(sources src platform | xargs grep --line-number --extended-regexp 'simcamera|SIMCAMERA|getenv|#include "(hooks|clock|life|lens|lenses|camera)/' || true)
  [ -z "$lines" ] || { printf '%s: the daemon must not know this, take it out\n' "$lines"; failed=1; }
  lines=$(sources src | xargs grep --line-number --extended-regexp '^[[:space:]]*(class|try|throw)\b|\bdynamic_cast\b|#define' || true)
  [ -z "$lines" ] || { printf '%s: not in this style, use a record, a result or a constexpr\n' "$lines"; failed=1; }
  return $failed
}

check_symbols() {
  tools/check_symbols.sh build/bin/vernierlensd build/lib/libtaskshim.so.1 build/lib/libcourier.so.1 \
    build/lib/libtreereader.so.1
}

# Tests are at most a third of the code.
check_proportion() {
  local tests code
  tests=$(sources tests | xargs cat | grep --count --invert-match '^[[:space:]]*$')
  code=$(sources src platform simcamera tools | xargs cat | grep --count --invert-match '^[[:space:]]*$')
  echo "tests $tests lines, code $code lines: $((100 * tests / code))%"
  [ $((3 * tests)) -le "$code" ]
}

[ $# -gt 0 ] || set -- format borders symbols proportion tidy
for check in "$@"; do
  echo "-- $check"
  "check_$check"
done
