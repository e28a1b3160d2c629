#!/bin/bash
# check.sh PROGRAM ORVEL MODEL CHANNELS: an example gives what the command gives, later by one constant
# number of samples, and ends with the library's reason when it cannot.
set -euo pipefail
program=$1 orvel=$2 model=$3 channels=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# Two seconds of bursts of noise, whole frames of 10 ms and no whole number of larger blocks.
python3 - "$channels" > "$work/in" <<'PYTHON'
import array, random, sys
random.seed(7)
frames, channels = 32160, int(sys.argv[1])
array.array("f", (random.gauss(0, 0.1 if i // 4000 % 2 else 0.01) for i in range(frames)
                  for _ in range(channels))).tofile(sys.stdout.buffer)
PYTHON
"$orvel" clean --model "$model" --rate 16000 --channels "$channels" --format f32le - - \
  < "$work/in" > "$work/expected"
"$program" "$model" < "$work/in" > "$work/out"
python3 - "$work" "$channels" <<'PYTHON'
import array, pathlib, sys
expected, out = (array.array("f", pathlib.Path(sys.argv[1], name).read_bytes())
                 for name in ("expected", "out"))
channels = int(sys.argv[2])
delays = [delay for delay in range(0, 1600)
          if out[delay * channels:][:len(expected)] == expected[:len(out) - delay * channels]]
print("output is late by", delays, "samples;", len(out) - len(expected), "more than came in")
sys.exit(len(delays) != 1)
PYTHON

status=0
"$program" /no/such/model.ctl < /dev/null > "$work/out" 2> "$work/error" || status=$?
[ "$status" -ne 0 ] || fail "a missing model is no error"
grep -q model.ctl "$work/error" || fail "no reason: $(cat "$work/error")"
