#!/usr/bin/env bash
# Fuzzes what reads bytes from outside, under AddressSanitizer and UndefinedBehaviorSanitizer.
#   ./fuzz.sh replay [TARGET]     each input of bench/fuzz/corpus once
#   ./fuzz.sh SECONDS [TARGET]    each target for so long, as many at a time as there are jobs
# New inputs collect in build-fuzz/corpus, logs in build-fuzz/logs.  Exit status 1 on a finding: the input that shows it
# lies in build-fuzz/finds and is named, and "build-fuzz/bin/fuzz_TARGET INPUT" repeats it.  Two jobs; JOBS=N changes that.
set -euo pipefail
cd "$(dirname "$0")"

usage() { sed --quiet '2,4s/^# //p' "$0" >&2; exit 2; }
[[ ${1:-} =~ ^(replay|[0-9]+)$ ]] || usage
mode=$1
targets=(gateway xml_tree query frames treereader curves profile thermal state_files)
if [ -n "${2:-}" ]; then
  [[ " ${targets[*]} " == *" $2 "* ]] || usage
  targets=("$2")
fi

tools/setup.sh --checks
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel "${JOBS:-2}"

build=build-fuzz
export ASAN_OPTIONS=quarantine_size_mb=16  # freed memory is kept over a few inputs, not over thousands
mkdir -p "$build/finds" "$build/logs"
export build mode

fuzz_one() { # TARGET
  local seeds=bench/fuzz/corpus/$1 found=$build/corpus/$1 log=$build/logs/$1.log what find
  mkdir -p "$found"
  if [ "$mode" = replay ]; then
    what=("$seeds"/*)
  else
    # At most 4 KiB an input; one that takes 10 seconds or 1 GiB is a finding.
    what=(-max_total_time="$mode" -max_len=4096 -timeout=10 -rss_limit_mb=1024 -print_final_stats=1 "$found" "$seeds")
  fi
  if "$build/bin/fuzz_$1" -artifact_prefix="$build/finds/$1-" "${what[@]}" >"$log" 2>&1; then
    [ "$mode" != replay ] || echo "#${#what[@]}	DONE replayed" >>"$log"
    printf '%-12s %s\n' "$1" "$(sed --quiet 's/^#\([0-9]*\)\tDONE */\1 inputs, /p' "$log")"
    return
  fi
  grep --extended-regexp 'ERROR|runtime error|does not hold|SUMMARY' "$log" >&2 || tail --lines=5 "$log" >&2
  find=$(sed --quiet 's/.*Test unit written to //p; s/^Running: //p' "$log" | tail --lines=1)
  echo "$1: finding, repeat with: $build/bin/fuzz_$1 $find (log: $log)" >&2
  return 1
}
export -f fuzz_one
printf '%s\n' "${targets[@]}" | xargs --max-procs="${JOBS:-2}" --max-args=1 bash -c 'fuzz_one "$1"' fuzz || exit 1
