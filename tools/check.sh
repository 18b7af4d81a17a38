#!/usr/bin/env bash
# The static checks: format, clang-tidy, borders between folders, symbols that the simulated clock must know, and facts of the
# docs that a build can check.
#   tools/check.sh [format|tidy|borders|floors|symbols|libraries|footprint|told|proportion]...     all of them if none is named
# Needs a build of the release preset.
set -euo pipefail
cd "$(dirname "$0")/.."

sources() { git ls-files --cached --others --exclude-standard -- "$@" | grep --extended-regexp '\.(c|cpp|h)$'; }

check_format() {
  sources src platform simcamera trials tests tools bench | xargs clang-format --dry-run -Werror
}

check_tidy() {
  sources src | grep '\.cpp$' | xargs --max-procs=2 --max-args=4 clang-tidy --quiet -p build 2>/dev/null
}

# Complains about each line of the folder ROOM that includes a header of the folder OTHER or builds a source of it.
takes_from() { # ROOM OTHER
  sources "$2" | awk -v room="$1" -v other="$2" '
    FILENAME == "-" { sub("^" other "/", ""); headers[$0]; next }
    /^[[:space:]]*#include "/ { split($0, parts, "\""); taken = parts[2] in headers || parts[2] ~ "(^|/)" other "/" }
    /^[^#]*(\.\.|SOURCE_DIR})\// && FILENAME ~ /\.txt$/ { taken = $0 ~ "(\\.\\.|SOURCE_DIR})/" other "([/ )]|$)" }
    taken { print FILENAME ":" FNR ": " room "/ must not know " other "/, move what both need to trials/" }
    { taken = 0 }' - $(sources "$1") $(git ls-files --cached --others --exclude-standard -- "$1/*CMakeLists.txt")
}

# src/ uses the platform headers and POSIX, never the simulated camera; only simcamera and tests use both.  Tests and benchmarks
# use trials/, and never each other.
check_borders() {
  local failed=0
  local lines
  lines=$(sources src platform | xargs grep --line-number --extended-regexp 'simcamera|SIMCAMERA|getenv|#include "(hooks|clock|life|lens|world|cli)/' || true)
  [ -z "$lines" ] || { printf '%s: the daemon must not know this, take it out\n' "$lines"; failed=1; }
  lines=$(sources src | xargs grep --line-number --extended-regexp '^[[:space:]]*(class|try|throw)\b|\bdynamic_cast\b|#define' || true)
  [ -z "$lines" ] || { printf '%s: not in this style, use a record, a result or a constexpr\n' "$lines"; failed=1; }
  lines=$(takes_from tests bench; takes_from bench tests; takes_from trials tests; takes_from trials bench)
  [ -z "$lines" ] || { printf '%s\n' "$lines"; failed=1; }
  return $failed
}

# Inside src/ units form no cycle, and folders include each other in the order of src/floors.txt, which the page draws.
check_floors() {
  tools/check_floors.py src docs/architecture.md
}

check_symbols() {
  tools/check_symbols.sh build/bin/vernierlensd build/lib/libtaskshim.so.1 build/lib/libcourier.so.1 \
    build/lib/libtreereader.so.1
}

# The daemon and the camera's libraries load what the table in docs/integration.md says.  The loader is left out: it is part of
# the C library, and named after the processor.
check_libraries() {
  readelf --dynamic build/bin/vernierlensd build/lib/lib{gatelink,courier,taskshim,treereader}.so |
    sed --quiet 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep --invert-match '^ld-linux' | sort --unique |
    diff <(sed --quiet '/^## Libraries/,/^## B/s/^| `\(lib[^`]*\)`.*/\1/p' docs/integration.md | sort) - || {
    echo "docs/integration.md: < stands in the table of libraries, > is loaded: make them one"
    return 1
  }
}

# Size and memory in docs/performance.md are those of this build, within a tenth.
check_footprint() {
  bench/footprint.sh build 1 | awk -F ' *[|] *' '
    NR == FNR { told[$2] = $3; next }
    $2 == "resident memory" || $2 == "stripped binary" {
      rows++
      count = split($3, seen, /[^0-9]+/)
      split(told[$2], page, /[^0-9]+/)
      for (i = 1; i < count; i++) {
        if (seen[i] >= 0.9 * page[i] && seen[i] <= 1.1 * page[i]) continue
        print "docs/performance.md: the row \"" $2 "\" says \"" told[$2] "\", measured is \"" $3 "\": run bench/footprint.sh, give its row"
        failed = 1
        break
      }
    }
    END {
      if (rows != 2) print "bench/footprint.sh: no figures of memory and size"
      exit failed || rows != 2
    }' docs/performance.md -
}

# The names in the tables of the daemon and the simulation stand in the docs.  PAGE NAME...: complains about missing ones.
check_told_in() {
  local page=$1 failed=0 name
  shift
  [ $# -gt 0 ] || { echo "$page: the table of what it has to tell cannot be read"; return 1; }
  for name in "$@"; do
    grep --quiet --word-regexp --fixed-strings -- "$name" "$page" || { echo "$page: does not tell of $name, add it"; failed=1; }
  done
  return $failed
}

check_told() {
  local failed=0 words query_keys keys models page model
  words=$(sed --quiet '/g_atFunctions\[\]/,/^};/s/^ *{"\([a-z]*\)".*/\1/p' src/command/client_parser.cpp)
  query_keys=$(sed --quiet '/g_atKeys\[\]/,/^};/s/^ *{"\([a-z]*\)".*/\1/p' src/command/client_parser.cpp)
  keys=$(sed --quiet 's/.*"\/root\/vernierlensd\/\([^"]*\)".*/\1/p' src/config/config_rows.cpp)
  models=$(sed --quiet 's/.*\.szName = "\([^"]*\)".*/\1/p' simcamera/lens/lenses.cpp)
  for page in docs/queries.md docs/clients.md docs/vernierlensd.8; do
    # shellcheck disable=SC2086
    check_told_in $page $words || failed=1
  done
  # shellcheck disable=SC2086
  check_told_in docs/queries.md $query_keys || failed=1
  # shellcheck disable=SC2086
  check_told_in docs/integration.md $keys || failed=1
  # shellcheck disable=SC2086
  check_told_in simcamera/world/camera_files.cpp $keys || failed=1
  for model in $models; do # in the output of `simcamera lenses`, since a model's name may be any word
    grep --quiet "^$model  *[A-Za-z]" docs/simcamera.md || { echo "docs/simcamera.md: the output of lenses has no line for $model, add it"; failed=1; }
  done
  return $failed
}

# Tests and what they share with the campaigns are at most 36 % of the code, and a third once the desk tools have landed.
check_proportion() {
  local tests code
  tests=$(sources trials tests | xargs cat | grep --count --invert-match '^[[:space:]]*$')
  code=$(sources src platform simcamera tools | xargs cat | grep --count --invert-match '^[[:space:]]*$')
  echo "tests and trials $tests lines, code $code lines: $((100 * tests / code))%"
  [ $((100 * tests)) -le $((36 * code)) ] || { echo "tests, trials: more than 36 % of the code, merge what overlaps"; return 1; }
}

[ $# -gt 0 ] || set -- format borders floors symbols libraries footprint told proportion tidy
for check in "$@"; do
  echo "-- $check"
  "check_$check"
done
