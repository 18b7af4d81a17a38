#!/usr/bin/env bash
# Builds the tree and shows the daemon moving a simulated zoom lens at 50 times its speed.  Exits 0 only if believed and true
# positions agree at every rest.
set -euo pipefail
cd "$(dirname "$0")"

tools/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --parallel 2 | tail --lines=1

sim=build/bin/simcamera
root=$(mktemp --directory "${TMPDIR:-/tmp}/vernier-demo.XXXXXX")
camera=
finish() {
  [ -z "$camera" ] || kill -TERM "$camera" 2>/dev/null || true
  wait
  rm --recursive --force "$root"
}
trap finish EXIT

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
ask() {
  printf '  %s\n' "$1"
  "$sim" ask "$root" "$1" | sed 's/^/    /'
  echo
}

# Waits for rest, then holds belief against truth on both axes.
rest() {
  "$sim" wait "$root" || { echo "the lens does not come to rest"; exit 1; }
  "$sim" show "$root"
  "$sim" show "$root" --json |
    sed 's/"/\n/g' | awk '
      /^believed$/ { key = "believed" } /^true$/ { key = "true" }
      /^:-?[0-9.]+/ && key != "" { gsub(/[^0-9.-]/, ""); value[key] = $0 + 0
        if (key == "true") { axes++; if (value["believed"] != value["true"]) wrong = 1 } key = "" }
      END { exit wrong || axes < 2 }' ||
    { echo "believed and true positions differ"; exit 1; }
}

say "A camera with a zoom lens, 50 times as fast as real"
"$sim" run "$root" --lens zoom --speed 50 &
camera=$!
for _ in $(seq 100); do
  [ -S "$root/tmp/VernierLens" ] && "$sim" ask "$root" 'function=getstatus' >/dev/null 2>&1 && break
  sleep 0.1
done

say "What the daemon says of itself"
ask 'function=getstatus'
say "A relative zoom of 25 steps"
ask 'function=zoom&direction=forward&steps=25'
rest
say "A direct zoom, then back: the backward move takes up the gear slack"
ask 'function=zoom&direction=direct&position=600'
rest
ask 'function=zoom&direction=direct&position=520'
rest
say "A stop in the middle of a long move"
ask 'function=zoom&direction=direct&position=20'
ask 'function=stop'
rest
say "A focus move"
ask 'function=focus&direction=direct&position=900'
rest
say "The last requests to the drivers"
"$sim" transcript "$root" | tail --lines=12
say "Both axes over time"
"$sim" transcript "$root" --picture
say "Believed and true positions agree at every rest."
