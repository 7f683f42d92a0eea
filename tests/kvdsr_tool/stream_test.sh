#!/usr/bin/env bash
# Usage: stream_test.sh KVDSR WORKDIR SAMPLES
# Stream mode (--frames): a raw stream runs frame by frame through one Init
# and gives, frame for frame, what single-frame runs give; bad streams are
# refused before the first frame with the file named and exit code 1.
set -u
KVDSR=$1
WORK=$2
SAMPLES=$3
. "$(dirname "$0")/checks.sh"
rm -rf "$WORK"
mkdir -p "$WORK"
cd "$WORK" || exit 1


size_of() { stat -c %s "$1" 2>/dev/null || echo 0; }
F=$((640 * 480 * 3 / 2))
L=$SAMPLES/chess-left.jpg
R=$SAMPLES/chess-right.jpg
MOD=$SAMPLES/chess-rig.calib

# Three different frames per camera: the pair, the pair mirrored by the
# depth view (any engine output will do), and the pair again.
run one_a 0 "" focal-shift --calib "$MOD" --first "$L" --second "$R" --distance 0 --out a --raw a
run one_b 0 "" focal-shift --calib "$MOD" --first "$R" --second "$L" --distance 0 --out b --raw b
cat a-first.nv21 b-first.nv21 a-first.nv21 >first3.nv21
cat a-second.nv21 b-second.nv21 a-second.nv21 >second3.nv21

# Every frame of the stream equals a single-frame run on that frame.
run stream_all 0 "3 frames in" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 0 --raw s
[ "$(size_of s-first.nv21)" = $((3 * F)) ] || fail "stream_all: s-first.nv21 is not 3 frames"
[ "$(size_of s-second.nv21)" = $((3 * F)) ] || fail "stream_all: s-second.nv21 is not 3 frames"
grep -q '\[#' stream_all.err && fail "stream_all: progress bar drawn although stderr is not a terminal"
for i in 0 1 2; do
  for cam in first second; do
    head -c $(((i + 1) * F)) ${cam}3.nv21 | tail -c $F >in-$cam-$i.nv21
  done
  run single_$i 0 "" stereoview --calib "$MOD" --first in-first-$i.nv21 --second in-second-$i.nv21 \
    --format nv21 --size 640x480 --out one$i --raw one$i
  for cam in first second; do
    head -c $(((i + 1) * F)) s-$cam.nv21 | tail -c $F | cmp -s - one$i-$cam.nv21 ||
      fail "stream frame $i ($cam) differs from the single-frame run"
  done
done
cmp -s <(head -c $F s-first.nv21) <(tail -c $F s-first.nv21) || fail "frames 0 and 2 (same input) differ"
cmp -s <(head -c $F s-first.nv21) <(head -c $((2 * F)) s-first.nv21 | tail -c $F) &&
  fail "frames 0 and 1 (different inputs) are identical"

run stream_two 0 "2 frames in" focal-shift --calib "$MOD" --first first3.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 2 --distance 1000 --raw t
[ "$(size_of t-first.nv21)" = $((2 * F)) ] || fail "stream_two: not 2 frames"
# Standard output: the outputs of each frame in turn.
run stream_stdout 0 "" focal-shift --calib "$MOD" --first first3.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 0 --raw -
[ "$(size_of stream_stdout.out)" = $((6 * F)) ] || fail "stream_stdout: not 3 frame pairs on standard output"
# A terminal gets a progress bar (script gives the tool one).
if command -v script >/dev/null; then
  script -qec "$KVDSR focal-shift --calib $MOD --first first3.nv21 --second second3.nv21 --format nv21 \
    --size 640x480 --frames 0 --raw tty" /dev/null >tty.log 2>&1
  grep -q '\[#*\] 3/3 frames' tty.log || fail "no progress bar on a terminal"
fi

# Depth engines: one map for every frame, or a raw stream of maps.
AL=$SAMPLES/aloe-left.jpg
"$KVDSR" demo --out demo >/dev/null 2>&1  # writes the Aloe rig's calibration
ALOE=demo/aloe.calib
run dv_one 0 "" depthview --calib "$ALOE" --image "$AL" --depth "$SAMPLES/aloe-disparity.png" \
  --direction right --out dv --raw dv 2>/dev/null
if [ -f dv-input.nv21 ]; then
  cat dv-input.nv21 dv-input.nv21 >aloe2.nv21
  run dv_stream 0 "2 frames in" depthview --calib "$ALOE" --image aloe2.nv21 --format nv21 \
    --size 640x554 --depth "$SAMPLES/aloe-disparity.png" --direction right --frames 0 --raw dvs
  cmp -s <(head -c $((640 * 554 * 3 / 2)) dvs.nv21) dv-synth.nv21 || fail "dv_stream: frame 0 differs from the single run"
  cmp -s <(tail -c $((640 * 554 * 3 / 2)) dvs.nv21) dv-synth.nv21 ||
    fail "dv_stream: frame 1 differs (the map must be fresh for every frame)"
  head -c $((2 * 160 * 120)) /dev/zero >maps2.depth8
  run dv_maps_short 1 "one map for every frame or one for all 3" depthview --calib "$ALOE" \
    --image first3.nv21 --format nv21 --size 640x480 --depth maps2.depth8 --depth-format depth8 \
    --depth-size 160x120 --frames 0 --raw x
  # A map per frame: frame i takes map i.
  /usr/bin/python3 -c "
import sys
w, h = 160, 120
near = bytes([200 if abs(x - 80) < 30 and abs(y - 60) < 30 else 100 for y in range(h) for x in range(w)])
sys.stdout.buffer.write(bytes([100]) * (w * h) + near + bytes([100]) * (w * h))" >maps3.depth8
  run dv_maps 0 "3 frames in" depthview --calib "$ALOE" --image first3.nv21 --format nv21 --size 640x480 \
    --depth maps3.depth8 --depth-format depth8 --depth-size 160x120 --frames 0 --raw m
  head -c $F first3.nv21 | cmp -s - <(head -c $F m.nv21) || fail "dv_maps: a flat map must copy frame 0"
  head -c $((2 * F)) first3.nv21 | tail -c $F | cmp -s - <(head -c $((2 * F)) m.nv21 | tail -c $F) &&
    fail "dv_maps: frame 1's map is not flat, yet the frame was copied"
fi

# ---- bad streams: refused before the first frame ----
cp first3.nv21 trunc.nv21
head -c 100 /dev/zero >>trunc.nv21
run truncated 1 "the last frame is truncated" stereoview --calib "$MOD" --first trunc.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 0 --raw u
[ -e u-first.nv21 ] && [ "$(size_of u-first.nv21)" != 0 ] && fail "truncated: frames written before the refusal"
run truncated_named 1 "trunc.nv21: 3 whole nv21 640x480 frame(s) of 460800 bytes and 100 bytes more" \
  stereoview --calib "$MOD" --first trunc.nv21 --second second3.nv21 --format nv21 --size 640x480 --frames 0 --raw u
run truncated_first_n 0 "3 frames in" stereoview --calib "$MOD" --first trunc.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 3 --raw v
run too_few 1 "but --frames asks for 5" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 \
  --format nv21 --size 640x480 --frames 5 --raw w
head -c $((2 * F)) second3.nv21 >second2.nv21
run unequal 1 "the first input holds 3 frames" stereoview --calib "$MOD" --first first3.nv21 --second second2.nv21 \
  --format nv21 --size 640x480 --frames 0 --raw w
run wrong_size 1 "not even one frame" stereoview --calib "$MOD" --first in-first-0.nv21 --second in-second-0.nv21 \
  --format nv21 --size 1280x960 --frames 0 --raw w
run no_raw 1 "give --raw" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 --format nv21 \
  --size 640x480 --frames 0
run no_size 1 "give --format and --size" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 \
  --frames 0 --raw w
run png_stream 1 "not PNG or JPEG" stereoview --calib "$MOD" --first "$L" --second "$R" --format nv21 \
  --size 640x480 --frames 0 --raw w
run negative 1 "--frames must be" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 --format nv21 \
  --size 640x480 --frames -1 --raw w
: >empty.nv21
run empty 1 "not even one frame" stereoview --calib "$MOD" --first empty.nv21 --second empty.nv21 --format nv21 \
  --size 640x480 --frames 0 --raw w
run odd 1 "even width and height" stereoview --calib "$MOD" --first first3.nv21 --second second3.nv21 --format nv21 \
  --size 641x480 --frames 0 --raw w
run missing 1 "cannot open" stereoview --calib "$MOD" --first nowhere.nv21 --second second3.nv21 --format nv21 \
  --size 640x480 --frames 0 --raw w

finish "stream"
