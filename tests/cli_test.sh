#!/usr/bin/env bash
# Tests the command lines: how simcamera, lensday and fifocmd take arguments and refuse, and what simcamera tells of a camera.
#   tests/cli_test.sh BUILD CASE
set -euo pipefail

bin=$1/bin
top=$(mktemp --directory "${TMPDIR:-/tmp}/vernier-cli.XXXXXX")
camera=
finish() {
  [ -z "$camera" ] || kill -TERM "$camera" 2>/dev/null || true
  wait
  rm --recursive --force "$top"
}
trap finish EXIT

fail() {
  echo "FAILED: $*"
  exit 1
}

# Each row: exit status, a part of the only line on stderr (of the output where the status is 0), the words.
case_arguments() {
  local status text words
  while IFS='|' read -r status text words; do
    local got=0
    # shellcheck disable=SC2086
    "$bin"/$words >"$top/out" 2>"$top/err" || got=$?
    [ "$got" = "$status" ] || fail "$words exits $got: $(cat "$top/err")"
    [ "$status" = 0 ] || [ "$(wc --lines <"$top/err")" = 1 ] || fail "$words: not one line: $(cat "$top/err")"
    [ "$status" = 0 ] || mv "$top/err" "$top/out"
    grep --quiet --fixed-strings -- "$text" "$top/out" || fail "$words says $(cat "$top/out")"
  done <<'ROWS'
2|there is no "fly"; there are run, lenses, model,|simcamera fly
2|a command is missing; there are run,|simcamera
2|run: there is no option --sped; there are --help, --lens, --model, --etc,|simcamera run --sped=5 ROOT
2|the speed is a number from 0.01 to 1000, not "0.001"|simcamera run ROOT --speed=0.001
2|there is no lens model "tele"; there are zoom, focus,|simcamera run ROOT --lens tele
2|wait: --timeout takes a value|simcamera wait ROOT --timeout
2|press: BUTTON is required|simcamera press ROOT
2|ask: "b" is one word too many|simcamera ask ROOT a b
2|fault: there is no "burn"; there are detach, stall, slip,|simcamera fault ROOT burn
2|--picture excludes --json|simcamera transcript ROOT --json --picture
2|--channel is a whole number from 0 to 3|simcamera fault ROOT stall zoom --channel 4
1|No such file or directory|simcamera show nowhere
0|Commands:|simcamera --help
0|--for VALUE|simcamera press --help
0|one-in=N|simcamera fault slip --help
2|--days is a whole number from 1 to 366, not "0"|lensday --days=0
2|there is no option --day; there are --help, --lens, --days,|lensday --day 3
2|--from is above --to|lensday --from 20 --to 10
0|--svg VALUE|lensday -h
1|--event is required|fifocmd -p FIFO
1|there is no option -x; there are --help, --fifo, --event|fifocmd -p FIFO -e XML -x
1|cannot send to nowhere: No such file or directory|fifocmd -p nowhere -e XML
0|<afbutton>|fifocmd --help
ROWS
  ! "$bin/fifocmd" -p '' -e XML 2>"$top/out" && grep --quiet "empty or too long" "$top/out" || fail "an empty FIFO"
}

sim() { "$bin/simcamera" "$@"; }

await() { # TEXT, which the run prints
  for _ in $(seq 600); do
    grep --quiet "$1" "$top/run" && return
    sleep 0.05
  done
  fail "the run does not say: $1"
}

start() { # MODEL
  : >"$top/run"
  "$bin/simcamera" run "$top/root" --lens "$1" --speed=50 >"$top/run" 2>&1 &
  camera=$!
  await listens
}
end() {
  kill -TERM "$camera"
  wait "$camera" || fail "the camera ended badly: $(cat "$top/run")"
  camera=
}
rest() { sim wait "$top/root" || fail "no rest"; }
json() { # PYTHON, a condition on s, what show --json says
  sim show "$top/root" --json | python3 -c "import json, sys; s = json.load(sys.stdin); c = s['channels'][0]
if not ($1): sys.exit(json.dumps(s, indent=1))" || fail "not so: $1"
}
says() { sim "$@" || fail "simcamera $*"; }

# What a bench sees, and faults that are listed and cleared.
case_show() {
  start zoom
  json "s['speed'] == 50 and not s['paused'] and s['faults'] == [] and c['zoom']['believed'] == 200"
  local fault
  printf '%s\n' 'stall zoom' 'slip focus 40' 'slip focus one-in=9' 'flash-full on' 'sensor silent' 'ircut-file torn' >"$top/faults"
  while read -r fault; do
    # shellcheck disable=SC2086
    says fault "$top/root" $fault
  done <"$top/faults"
  diff "$top/faults" <(sim fault "$top/root") || fail "the list of faults"
  says fault "$top/root" clear
  json "s['faults'] == []"
  says set "$top/root" distance=3
  sim set "$top/root" distance=9 scene=dark 2>/dev/null && fail "a scene that is not there"
  json "s['scene']['distance_m'] == 3" # no part of a refused setting is done
  says fault "$top/root" slip zoom 40
  says ask "$top/root" 'function=zoom&direction=direct&position=300' >/dev/null
  rest
  json "c['zoom']['believed'] == 300 and c['zoom']['true'] == 295 and c['zoom']['lost_to_faults_steps'] == 40"
  json "abs(c['focus']['glass'] - c['focus']['sharp']) / c['focus']['depth_vsteps'] - abs(c['focus']['off-depths']) < 1e-3"
  json "c['focus']['value_now'] <= c['focus']['value_best'] == 62000 and s['lens']['zoom']['slack_steps'] == 41"
  sim optics "$top/root" --json | python3 -c "import json, sys
rows = json.load(sys.stdin)['optics']
sys.exit(len(rows) != 21 or rows[20]['zoom_vsteps'] != 800 or rows[20]['peak_width_vsteps'] != 22)" || fail "optics"
  says speed "$top/root" max
  json "s['speed'] == 'max'"
  says pause "$top/root"
  json "s['paused']"
  end
  json "c['zoom']['believed'] is None and c['zoom']['true'] == 295 and s['speed'] is None"
}

# The power is cut at the very line, the next start is marked, and the transcript as JSON can be followed.
case_transcript() {
  start zoom
  says press "$top/root" zoomin --for=20
  rest
  sim fault "$top/root" power-cut --at 'x(' 2>/dev/null && fail "a pattern that is none"
  says fault "$top/root" power-cut --at 'zoommotor MOTOR_WALK_STEPS [0-9]{4} '
  local from
  from=$(sim transcript "$top/root" --json | tail --lines=1 | python3 -c 'import json, sys; print(json.load(sys.stdin)["next"])')
  says ask "$top/root" 'function=zoom&direction=direct&position=600' >/dev/null
  await "power was cut"
  rest
  sim transcript "$top/root" --json --from "$from" | python3 -c "import json, sys
l = [json.loads(x) for x in sys.stdin]
n = next(i for i, x in enumerate(l) if x['event'] == 'start 2')
c, s = l[n - 1], l[n]
assert c['request'] == 'MOTOR_WALK_STEPS' and c['argument'] >= 1000 and c['thread'] == 'zoom', c
assert s['time_s'] == c['time_s'] and l[-1]['next'] > $from, s
assert any('print' in x for x in l)" || fail "the cut"
  [ "$(sim transcript "$top/root" | grep --count --extended-regexp ' -     (press|release) zoomin$')" = 2 ] || fail "press"
  [ -z "$(sim fault "$top/root")" ] || fail "the cut is to come once"
  end
}

# The picture of an ICS lens has its axes, up to the place where a cut stops them.
case_ics_picture() {
  start ics
  end
  cat >"$top/root/sim/transcript" <<'LINES'
     0.300000 main  focusmotor MOTOR_WALK_STEPS_BLOCK 100 = 0 rotor 100
     1.000000 main  icsdriver ICS_SET_ZOOM_POSITION 100 = 0 locked
     3.000000 t1    icsdriver ICS_SET_ZOOM_POSITION 1100 = 0 locked
     3.250000 main  start 2
     3.250000 t2    icsdriver ICS_SET_FOCUS_POSITION 400 = 0
     4.000000 t2    icsdriver ICS_GET_FOCUS_POSITION = 400
LINES
  sim transcript "$top/root" --picture >"$top/picture"
  [ "$(grep --count --extended-regexp '^   (600|100)\.0 \|.*\*|^   400\.0 \|.*\*$' "$top/picture")" = 3 ] ||
    fail "$(cat "$top/picture")"
}

"case_$2"
echo "passed: $2"
