#!/usr/bin/env bash
# What an idle daemon costs: wake-ups and processor time over a minute, resident memory, size of the stripped binary, as rows of
# docs/performance.md.
#   bench/footprint.sh [BUILD [SECONDS]]
set -euo pipefail
build=${1:-build-bench}
seconds=${2:-60}
root=$(mktemp --directory "${TMPDIR:-/tmp}/vernier-idle.XXXXXX")
"$build/bin/simcamera" run "$root" --lens zoom --speed 1 >/dev/null &
camera=$!
trap 'kill -TERM $camera; wait; rm --recursive --force "$root"' EXIT
for _ in $(seq 100); do
  "$build/bin/simcamera" ask "$root" 'function=getstatus' >/dev/null 2>&1 && break
  sleep 0.1
done
daemon=$(cat "$root/sim/daemon.pid")

wakeups() { cat "/proc/$daemon"/task/*/status | awk '/^voluntary_ctxt_switches/ { n += $2 } END { print n }'; }
ticks() { awk '{ print $14 + $15 }' "/proc/$daemon/stat"; }

before=$(wakeups)
ticks_before=$(ticks)
sleep "$seconds"
echo "| wake-ups in $seconds s | $(($(wakeups) - before)): three threads, each waiting 3 s at a time |"
echo "| processor time in $seconds s | $(($(ticks) - ticks_before)) ticks of 1/$(getconf CLK_TCK) s |"
awk '/^VmRSS/ { all = $2 } /^RssAnon/ { own = $2 }
     END { print "| resident memory | " all " KiB, of it " own " KiB its own |" }' "/proc/$daemon/status"
strip --output-file="$root/stripped" "$build/bin/vernierlensd"
echo "| stripped binary | $(stat --format=%s "$root/stripped") bytes |"
