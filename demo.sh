#!/usr/bin/env bash
# Builds the tree and shows the daemon at work on a simulated zoom lens at 50 times its speed: moves, auto focus, a scan, a power
# cut and the repair behind it; then a day of a thermal lens.  Exits 0 only if believed and true positions agree at every rest
# and the focus is sharp, through the day as far as the lens's table allows.
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
fail() { echo "FAILED: $*"; tail --lines=15 "$root/sim/daemon.log"; exit 1; }
ask() {
  printf '  %s\n' "$1"
  "$sim" ask "$root" "$1" | sed 's/^/    /'
  echo
}

start_camera() { # [LENS]
  "$sim" run "$root" --lens "${1:-zoom}" --speed 50 &
  camera=$!
  until_answer
}
until_answer() {
  for _ in $(seq 200); do
    "$sim" ask "$root" 'function=getstatus' >/dev/null 2>&1 && return
    sleep 0.1
  done
  fail "the daemon does not answer"
}

value() { # AXIS KEY: of what show --json says
  "$sim" show "$root" --json | sed "s/.*\"$1\":{\([^}]*\)}.*/\1/; s/.*\"$2\":\([-0-9.]*\).*/\1/"
}

# Waits for rest, then holds belief against truth on both axes.
rest() {
  "$sim" wait "$root" --timeout 400 || fail "the lens does not come to rest"
  "$sim" show "$root"
  local axis
  for axis in zoom focus; do
    awk -v a="$(value $axis believed)" -v b="$(value $axis true)" 'BEGIN { exit a + 0 != b + 0 }' ||
      fail "$axis: believed and true positions differ"
  done
}
sharp() {
  awk -v a="$(value focus lens)" -v b="$(value focus sharp)" -v d="$(value focus depth)" \
    'BEGIN { off = a - b; if (off < 0) off = -off; printf "  %.1f steps from sharp, depth of focus %.1f\n", off, d; exit off > d }' ||
    fail "out of focus"
}

say "A new camera: no status file, so both axes find their reference and the focus is searched"
start_camera
kill -TERM "$camera"
wait "$camera" || fail "the camera ended badly"
rm "$root/mnt/flash/.VernierlensStatus"
start_camera
"$sim" set "$root" distance=3
rest
say "What the daemon says of itself"
ask 'function=getstatus'
say "A relative zoom of 25 steps; the focus follows"
ask 'function=zoom&direction=forward&steps=25'
rest
say "A direct zoom, and a stop in the middle of the long way back"
ask 'function=zoom&direction=direct&position=600'
rest
ask 'function=zoom&direction=direct&position=20'
sleep 0.02
ask 'function=stop'
rest
say "A focus move, then auto focus on an object at 3 m"
ask 'function=focus&direction=direct&position=900'
rest
ask 'function=auto'
rest
sharp
say "Through the whole zoom range with the focus following"
ask 'function=zoom&direction=direct&position=0'
rest
ask 'function=zoom&direction=direct&position=800'
rest
ask 'function=zoom&direction=direct&position=400'
rest
say "A scan of the whole focus range, and its curve"
ask 'function=scan'
rest
sharp
echo "  steps above the start of the range; below 140 stand the readings of the finer sweeps behind it"
for position in $(seq 140 10 700); do
  printf '%s ' "$position"
  "$sim" ask "$root" "function=getparam&position=$position" | sed --quiet "s/.*focus_value='\([0-9]*\)'.*/\1/p"
done | awk '$2 > 0 { n = int($2 / 900); bar = ""; for (i = 0; i < n; i++) bar = bar "#"; printf "  %5d %6d %s\n", $1, $2, bar }'
say "Power is cut in the middle of a zoom"
ask 'function=zoom&direction=direct&position=0'
rest
"$sim" ask "$root" 'function=zoom&direction=direct&position=800' >/dev/null
"$sim" fault "$root" power-cut
sleep 1
until_answer
grep --fixed-strings 'Power loss unexpectedly' "$root/sim/daemon.log" || fail "the cut has not been noticed"
rest
sharp
say "The last requests to the drivers"
"$sim" transcript "$root" | tail --lines=12
say "Both axes over time"
"$sim" transcript "$root" --picture
say "A day in the life of a thermal lens: cold night, hot afternoon, and nobody who touches it"
build/bin/lensday --days 1 || { echo "FAILED: a thermal lens through its day"; exit 1; }
say "An ICS lens: its own driver, curves and sensor; a client's auto focus chooses the tracking curve"
kill -TERM "$camera"
wait "$camera" || fail "the camera ended badly"
rm --recursive --force "$root"
start_camera ics
ask 'function=auto'
rest
sharp
say "Through its zoom range along that curve: steps off"
for position in $(seq 100 250 2100); do
  "$sim" ask "$root" "function=zoom&direction=direct&position=$position" >/dev/null
  "$sim" wait "$root" --timeout 100 || fail "the lens does not come to rest"
  echo "$position $(value focus lens) $(value focus sharp)"
done | awk '{ off = $2 - $3; bar = ""; for (i = 0; i < 10 + off; i++) bar = bar (i == 10 ? "|" : " "); printf "  %5d %6.1f %s*\n", $1, off, bar }'
rest
sharp
say "Warmer by 20 degrees, then night: the focus follows both"
"$sim" set "$root" temperature=45
sleep 3.5
rest
sharp
"$sim" set "$root" mode=night
sleep 0.5
rest
sharp
say "The lens is detached in the middle of a positioning; the daemon answers, and ends in order"
"$sim" ask "$root" 'function=positioning' >/dev/null
"$sim" fault "$root" detach
ask 'function=getstatus'
kill -TERM "$camera"
wait "$camera" || fail "the camera ended badly"
camera=
say "Believed and true positions agree at every rest, and the focus is sharp."
