#!/usr/bin/env bash
# Builds the tree and shows the daemon at work on a simulated zoom lens: moves, auto focus, a scan, a power cut and the repair
# after it; a day of a thermal lens; an ICS lens.  Exits 0 only if believed and true positions agree at every rest and the focus
# is sharp, through the day as far as the lens's table allows.  Takes about a minute after the build, which takes some minutes
# the first time.
set -euo pipefail
cd "$(dirname "$0")"

tools/setup.sh
cmake --preset release >/dev/null
echo "Building, which takes some minutes the first time..."
cmake --build --preset release --parallel 2 | tail --lines=1

sim=build/bin/simcamera
root=$(mktemp --directory "${TMPDIR:-/tmp}/vernier-demo.XXXXXX")
camera=
lens=
# How many times as fast as real time.  A search needs each of the image side's 30 frames a second: here 150 a second.
fast=5
# For what must happen in the middle of a move: at these speeds even a busy host has most of a second to do it.
slow=3
slowest=0.8
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

start_camera() { # SPEED
  "$sim" run "$root" --lens "$lens" --speed "$1" &
  camera=$!
  until_answer
}
end_camera() {
  kill -TERM "$camera"
  wait "$camera" || fail "the camera ended badly"
  camera=
}
go_on_at() { # SPEED: the same camera, switched off in order and on again
  end_camera
  start_camera "$1"
}
until_answer() {
  for _ in $(seq 200); do
    "$sim" ask "$root" 'function=getstatus' >/dev/null 2>&1 && return
    sleep 0.1
  done
  fail "the daemon does not answer"
}

is() { awk "BEGIN { exit !($1) }"; } # CONDITION, of numbers that may have fractions

value() { # AXIS KEY: prints the value, as show --json has it
  "$sim" show "$root" --json | sed "s/.*\"$1\":{\([^}]*\)}.*/\1/; s/.*\"$2\":\([-0-9.]*\).*/\1/"
}

until_zoom() { # COMPARISON: of the zoom's true position, such as "> 100"
  for _ in $(seq 500); do
    is "$(value zoom true) $1" && return
    sleep 0.02
  done
  fail "the zoom does not come to $1"
}

# Waits for rest, then compares believed and true positions of both axes.
rest() {
  "$sim" wait "$root" --timeout 400 || fail "the lens does not come to rest"
  "$sim" show "$root"
  local axis
  for axis in zoom focus; do
    is "$(value $axis believed) == $(value $axis true)" || fail "$axis: believed and true positions differ"
  done
}
is_sharp() {
  off=$(awk "BEGIN { off = $(value focus glass) - $(value focus sharp); print off < 0 ? -off : off }")
  is "$off <= $(value focus depth_vsteps)"
}
sharp() {
  is_sharp || fail "out of focus: $off steps from sharp"
  printf '  %.1f steps from sharp, depth of focus %.1f\n' "$off" "$(value focus depth_vsteps)"
}
follows() { # KEY=VALUE that moves the sharp position: the daemon corrects the focus by itself, a minute later at most
  local before
  before=$(value focus true)
  "$sim" set "$root" "$1"
  for _ in $(seq 300); do
    is "$(value focus true) != $before" && is_sharp && break
    sleep 0.1
  done
  rest
  is "$(value focus true) != $before" || fail "the focus has not followed"
  sharp
}

say "A new camera: no status file, so both axes find their reference and the focus is searched"
lens=zoom
start_camera $fast
end_camera
rm "$root/mnt/flash/.VernierlensStatus"
start_camera $fast
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
go_on_at $slow
ask 'function=zoom&direction=direct&position=20'
until_zoom '< 500'
ask 'function=stop'
rest
is "$(value zoom true) > 20" || fail "the stop has come after the zoom's end"
go_on_at $fast
say "After a stopped zoom a search would look round the old target: a zoom by 0 steps first, then auto focus"
ask 'function=zoom&direction=forward&steps=0'
rest
ask 'function=auto'
rest
sharp
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
echo "  steps above the start of the range; below 140 stand the readings of the finer sweeps after it"
for position in $(seq 140 10 700); do
  printf '%s ' "$position"
  "$sim" ask "$root" "function=getparam&position=$position" | sed --quiet "s/.*focus_value='\([0-9]*\)'.*/\1/p"
done | awk '$2 > 0 { n = int($2 / 900); bar = ""; for (i = 0; i < n; i++) bar = bar "#"; printf "  %5d %6d %s\n", $1, $2, bar }'
say "Power is cut in the middle of a zoom"
ask 'function=zoom&direction=direct&position=0'
rest
go_on_at $slow
"$sim" ask "$root" 'function=zoom&direction=direct&position=800' >/dev/null
until_zoom '> 100'
"$sim" fault "$root" power-cut
for _ in $(seq 100); do
  grep --quiet --fixed-strings 'Power loss unexpectedly' "$root/sim/daemon.log" && break
  sleep 0.1
done
grep --fixed-strings 'Power loss unexpectedly' "$root/sim/daemon.log" || fail "the cut has not been noticed"
until_answer
rest
sharp
say "The last requests to the drivers"
"$sim" transcript "$root" | tail --lines=12
say "Both axes over time"
"$sim" transcript "$root" --picture
say "A day in the life of a thermal lens: cold night, hot afternoon, and nobody who touches it"
build/bin/lensday --days 1 || { echo "FAILED: a thermal lens through its day"; exit 1; }
say "An ICS lens: its own driver, curves and sensor; a client's auto focus chooses the tracking curve"
end_camera
rm --recursive --force "$root"
lens=ics
start_camera $fast
ask 'function=auto'
rest
sharp
say "Through its zoom range along that curve: steps off"
for position in $(seq 100 250 2100); do
  "$sim" ask "$root" "function=zoom&direction=direct&position=$position" >/dev/null
  "$sim" wait "$root" --timeout 100 || fail "the lens does not come to rest"
  echo "$position $(value focus glass) $(value focus sharp)"
done | awk '{ off = $2 - $3; bar = ""; for (i = 0; i < 10 + off; i++) bar = bar (i == 10 ? "|" : " "); printf "  %5d %6.1f %s*\n", $1, off, bar }'
rest
sharp
say "Warmer by 20 degrees, then night: the focus follows both"
follows temperature=45
follows mode=night
say "The lens is detached in the middle of a positioning; the daemon answers, and ends in order"
go_on_at $slowest
"$sim" ask "$root" 'function=positioning' >/dev/null
until_zoom '< 2100'
"$sim" fault "$root" detach
is "$(value zoom true) > 400" || fail "the detachment has come after the positioning"
ask 'function=getstatus'
end_camera
say "Believed and true positions agree at every rest, and the focus is sharp."
