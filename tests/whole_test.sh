#!/usr/bin/env bash
# Tests the daemon's own binary on a simulated camera that runs faster than real time.  Asserts no times.
#   tests/whole_test.sh BUILD CASE
set -euo pipefail

build=$1
case=$2
sim=$build/bin/simcamera
top=$(mktemp --directory "${TMPDIR:-/tmp}/vernier-whole.XXXXXX")
cameras=()
finish() {
  [ ${#cameras[@]} -eq 0 ] || kill -TERM "${cameras[@]}" 2>/dev/null || true
  wait
  rm --recursive --force "$top"
}
trap finish EXIT

fail() {
  echo "FAILED: $*"
  tail --lines=20 "$top"/*/sim/daemon.log 2>/dev/null || true
  exit 1
}

# Starts a camera and waits until it answers.
start() { # NAME MODEL
  "$sim" run "$top/$1" --lens "$2" --speed 50 >"$top/$1.run" 2>&1 &
  cameras+=($!)
  for _ in $(seq 200); do
    "$sim" ask "$top/$1" 'function=getstatus' >/dev/null 2>&1 && return
    sleep 0.1
  done
  fail "$1 does not answer: $(cat "$top/$1.run")"
}

expect_true() { # NAME AXIS POSITION
  "$sim" wait "$top/$1" || fail "$1 does not come to rest"
  "$sim" show "$top/$1" --json | grep --quiet "\"$2\":{\"believed\":$3,\"true\":$3," ||
    fail "$1 $2 is not at $3: $("$sim" show "$top/$1")"
}

case_curl() {
  start camera zoom
  local socket=$top/camera/tmp/VernierLens
  [ "$(curl --silent --include --unix-socket "$socket" 'http://camera/?function=getfocusdefault' | od -c)" = \
    "$(printf 'HTTP/1.1 400 Bad Request\r\n\r\n' | od -c)" ] || fail "refusal"
  [ "$(curl --silent --include --unix-socket "$socket" --data 'function=zoom&direction=direct&position=300' http://camera/ | od -c)" = \
    "$(printf 'HTTP/1.1 200 OK\r\nContent-type: text/plain\r\nCache-control: no-cache\r\nPragma: no-cache\r\nContent-length: 2\r\n\r\nOK' | od -c)" ] ||
    fail "plain OK"
  expect_true camera zoom 300
  curl --silent --unix-socket "$socket" 'http://camera/?function=getstatus' | grep --quiet "^vernier_lens_zoom_motor='300'" || fail "status"
  local daemon
  daemon=$(cat "$top/camera/sim/daemon.pid")
  kill -TERM "${cameras[0]}"
  wait "${cameras[0]}" || fail "the camera ended badly"
  [ ! -e "/proc/$daemon" ] || fail "the daemon is still there"
}

case_two_cameras() {
  start one zoom
  start two quad
  "$sim" ask "$top/one" 'function=zoom&direction=direct&position=400' >/dev/null
  "$sim" ask "$top/two" 'function=zoom&direction=direct&position=50' >/dev/null
  expect_true one zoom 400
  expect_true two zoom 50
}

# Whatever is done to the pace in the middle of a move: no step is lost, and a paused camera answers.
case_pace() {
  RANDOM=7
  start camera zoom
  local root=$top/camera move
  local -r speeds=(1 2 5 20 100)
  for move in $(seq 12); do
    "$sim" speed "$root" 5
    "$sim" ask "$root" "function=zoom&direction=direct&position=$((RANDOM % 800))" >/dev/null
    for _ in $(seq 5); do
      "$sim" speed "$root" "${speeds[RANDOM % 5]}"
      "$sim" show "$root" >/dev/null
      [ $((RANDOM % 3)) -ne 0 ] || {
        "$sim" pause "$root"
        "$sim" step "$root" $((1 + RANDOM % 40))
        "$sim" ask "$root" 'function=getstatus' >/dev/null || fail "a paused camera does not answer"
        "$sim" go "$root"
      }
    done
    [ $((move % 4)) -ne 0 ] || "$sim" ask "$root" 'function=auto' >/dev/null
    [ $((move % 2)) -ne 0 ] || {
      "$sim" show "$root" >/dev/null # a look into a walk changes nothing
      "$sim" ask "$root" 'function=stop' >/dev/null
    }
    "$sim" speed "$root" max
    "$sim" wait "$root" --timeout 100000 || fail "the camera does not come to rest"
    "$sim" show "$root" | awk '$2 == "zoom" || $2 == "focus" { axes++; if ($3 + 0 != $4 + 0) exit 1 } END { exit axes != 2 }' ||
      fail "not true: $("$sim" show "$root")"
  done
}

# One hash at any pace; a line that does not hold, and one that is wrong, are named.
case_script() {
  cat >"$top/good" <<'END'
# a stop, a search, a cut in the middle of a zoom
rest ask function=zoom&direction=direct&position=600
+2.9 ask function=stop
rest expect zoom.believed == zoom.true
+0.1 ask function=zoom&direction=forward&steps=0
rest ask function=auto
rest expect focus.off-depths < 1
+1 ask function=zoom&direction=direct&position=100
+1 fault power-cut
rest expect zoom.believed == zoom.true
+0 expect focus.believed == focus.true
+0 press zoomin --for 700
rest expect scene.night false
END
  printf 'rest ask function=getstatus\n+0.5 expect zoom.true > 999\n' >"$top/untrue"
  printf 'rest ask function=getstatus\nsoon show\n' >"$top/wrong"
  local speed status
  for speed in max 1000 100; do
    "$sim" run "$top/at-$speed" --speed "$speed" --script "$top/good" --until-rest >/dev/null || fail "script at $speed"
    cmp "$top/at-max/sim/transcript" "$top/at-$speed/sim/transcript" || fail "another transcript at $speed"
  done
  [ "$(wc -l <"$top/at-max/sim/transcript")" -gt 300 ] || fail "nothing happened"
  for script in untrue:1 wrong:2; do
    status=0
    "$sim" run "$top/refused" --speed max --script "$top/${script%:*}" --until-rest >/dev/null 2>"$top/why" || status=$?
    [ "$status" = "${script#*:}" ] && grep --quiet "/${script%:*}:2: " "$top/why" || fail "$script: $status $(cat "$top/why")"
  done
}

daemon_beside() { # LOG; its process is $!
  env LD_PRELOAD="$build/lib/libsimcamera.so" SIMCAMERA_ROOT="$top/camera" "$build/bin/vernierlensd" >"$1" &
}

# Two daemons would both move the lens, so the second waits until the first ends or until SIGTERM ends it.
case_second_daemon() {
  start camera zoom
  daemon_beside "$top/second"
  local second=$!
  "$sim" ask "$top/camera" 'function=zoom&direction=direct&position=400' >/dev/null
  until grep --quiet "waiting for its end" "$top/second"; do sleep 0.1; done
  kill -TERM "$second"
  wait "$second" || fail "the second ended with $?"
  grep --quiet "VernierLensd_Init failed" "$top/second" || fail "the second began"
  expect_true camera zoom 400

  kill -TERM "${cameras[0]}"
  wait "${cameras[0]}" || fail "the camera ended badly"
  cameras=()
  daemon_beside "$top/first"
  local first=$!
  until grep --quiet "Status" "$top/first"; do sleep 0.1; done
  daemon_beside "$top/second"
  second=$!
  until grep --quiet "waiting for its end" "$top/second"; do sleep 0.1; done
  kill -TERM "$first"
  wait "$first" || fail "the first ended with $?"
  for _ in $(seq 100); do
    "$sim" ask "$top/camera" 'function=getstatus' >/dev/null 2>&1 && break
    sleep 0.1
  done
  "$sim" ask "$top/camera" 'function=getstatus' >/dev/null || fail "no successor"
  kill -TERM "$second"
  wait "$second" || fail "the successor ended with $?"
}

# A log that nobody reads must neither end the daemon nor make it spin.
case_lost_log() {
  start camera zoom
  kill -TERM "${cameras[0]}"
  wait "${cameras[0]}" || true
  cameras=()
  mkfifo "$top/log"
  head --lines=3 "$top/log" >/dev/null &
  (ulimit -t 10; exec env LD_PRELOAD="$build/lib/libsimcamera.so" SIMCAMERA_ROOT="$top/camera" "$build/bin/vernierlensd") >"$top/log" &
  local daemon=$!
  sleep 1
  "$sim" ask "$top/camera" 'function=getstatus' >/dev/null || fail "no answer without a log"
  kill -TERM "$daemon"
  wait "$daemon" || fail "ended with $?"
}

# The camera's daemon prints into LOG, which nobody reads: clients are answered, and the lens moves.
works_into() { # LOG
  "$sim" run "$top/camera" --lens zoom --speed 50 >/dev/null &
  cameras=($!)
  until [ -e "$top/camera/sim/daemon.log" ]; do sleep 0.1; done
  kill -TERM "${cameras[0]}"
  wait "${cameras[0]}" || true
  ln --symbolic --force "$1" "$top/camera/sim/daemon.log"
  "$sim" run "$top/camera" --speed 50 >/dev/null &
  cameras=($!)
  local answered=no
  for _ in $(seq 30); do
    timeout 1 "$sim" ask "$top/camera" 'function=zoom&direction=direct&position=400' >/dev/null 2>&1 && answered=yes && break
    sleep 0.5
  done
  [ $answered = yes ] || { kill -KILL "${cameras[0]}"; fail "no answer"; }
  expect_true camera zoom 400
}

ends_in_time() {
  kill -TERM "${cameras[0]}"
  for _ in $(seq 100); do
    kill -0 "${cameras[0]}" 2>/dev/null || break
    sleep 0.1
  done
  kill -KILL "${cameras[0]}" 2>/dev/null && fail "SIGTERM does nothing"
  wait "${cameras[0]}" || fail "ended with $?"
  cameras=()
}

# A full pipe whose reader has stopped: all lines are dropped, and their number is printed when the reader goes on.
case_stalled_log() {
  mkfifo "$top/log"
  exec 7<>"$top/log"
  head --bytes=65536 /dev/zero >&7
  works_into "$top/log"
  head --bytes=65536 <&7 >/dev/null
  "$sim" ask "$top/camera" 'function=getstatus' >/dev/null
  local line
  read -r -t 10 line <&7 || fail "the log does not go on"
  [[ $line =~ ^'[vernierlensd] : Log lines dropped: '[0-9]+$ ]] || fail "$line"
  ends_in_time
}

# A serial console that somebody has stopped with Ctrl-S.
case_stopped_terminal() {
  python3 -c '
import os, pty, termios, time
master, slave = pty.openpty()
termios.tcflow(slave, termios.TCOOFF)
print(os.ttyname(slave), flush=True)
time.sleep(60)
' >"$top/terminal" &
  local holder=$!
  until [ -s "$top/terminal" ]; do sleep 0.1; done
  works_into "$(cat "$top/terminal")"
  ends_in_time
  kill "$holder"
}

"case_$case"
echo "passed: $case"
