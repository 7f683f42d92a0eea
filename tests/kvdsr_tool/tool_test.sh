#!/usr/bin/env bash
# Usage: tool_test.sh KVDSR WORKDIR SAMPLES
# Runs the tool's subcommands on the samples and on broken input: every
# failure must exit with the tool's own code and a clear message, never by
# a signal.
set -u
KVDSR=$1
WORK=$2
SAMPLES=$3
rm -rf "$WORK"
mkdir -p "$WORK"
cd "$WORK" || exit 1

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# run NAME EXPECTED_EXIT PATTERN ARGS...: exit code and a stderr/stdout match.
run() {
  local name=$1 want=$2 pattern=$3
  shift 3
  "$KVDSR" "$@" >"$name.out" 2>"$name.err"
  local rc=$?
  if [ "$rc" -ge 128 ]; then
    fail "$name: killed by signal $((rc - 128))"
    cat "$name.err"
    return
  fi
  if [ "$rc" != "$want" ]; then
    fail "$name: exit $rc, wanted $want"
    cat "$name.err"
    return
  fi
  if [ -n "$pattern" ] && ! grep -q -- "$pattern" "$name.out" "$name.err"; then
    fail "$name: output lacks '$pattern'"
    cat "$name.out" "$name.err"
  fi
}

# Exit 0 with outputs, or 2 with the engine's status named: what a run gives
# depends on which engines this build contains.
run_engine() {
  local name=$1
  shift
  "$KVDSR" "$@" >"$name.out" 2>"$name.err"
  local rc=$?
  case $rc in
    0) ;;
    2) grep -q 'returned 0x[0-9A-F]* (kvDSR_' "$name.err" || fail "$name: exit 2 without a status name" ;;
    *) fail "$name: exit $rc"; cat "$name.err" ;;
  esac
  echo "$rc"
}

size_of() { stat -c %s "$1" 2>/dev/null || echo 0; }

L=$SAMPLES/chess-left.jpg
R=$SAMPLES/chess-right.jpg
AL=$SAMPLES/aloe-left.jpg
AR=$SAMPLES/aloe-right.jpg
AD=$SAMPLES/aloe-disparity.png

# ---- demo: also produces the calibration files used below ----
run demo 0 "index.html" demo --out demo
[ -f demo/index.html ] || fail "demo: no index.html"
for img in $(grep -o 'src="[^"]*"' demo/index.html | sed 's/src="//; s/"//'); do
  [ -s "demo/$img" ] || fail "demo: index.html shows missing $img"
done
MOD=demo/module.calib
ALOE=demo/aloe.calib

# ---- usage ----
run help 0 "depthview" --help
run no_subcommand 1 "subcommand" 
run unknown_option 1 "--bogus" focal-shift --calib "$MOD" --bogus
run missing_required 1 "--calib" depthview --image "$AL" --depth "$AD"

# ---- focal-shift (this branch's engine) ----
run fs_pair 0 "wrote" focal-shift --calib "$MOD" --first "$L" --second "$R" --distance 1000 --out fs --raw fs
for f in fs-first.png fs-second.png fs-sbs.png fs-anaglyph.png; do [ -s "$f" ] || fail "fs_pair: no $f"; done
[ "$(size_of fs-first.nv21)" = $((640 * 480 * 3 / 2)) ] || fail "fs_pair: raw output size"
run fs_sbs_half 0 "640x480" focal-shift --side-by-side --half --calib "$MOD" --first "$L" --second "$R" \
  --distance 1000 --out fsh --raw fsh --format i420
[ "$(size_of fsh.i420)" = $((640 * 480 * 3 / 2)) ] || fail "fs_sbs_half: raw output size"
run fs_table 0 "shift -" focal-shift --print-table --calib "$MOD" --distance 1000 --width 640
[ "$(grep -c '^[0-9]* [0-9.]* [0-9.]*$' fs_table.out)" = 1024 ] || fail "fs_table: not 1024 table rows"
# A raw frame fed back in: the tool's own raw output is a valid input.
run fs_raw_in 0 "wrote" focal-shift --calib "$MOD" --first fs-first.nv21 --second fs-second.nv21 \
  --format nv21 --size 640x480 --distance 1000 --out fsraw
run fs_distance 2 "kvDSR_ERR_DISTANCE_RANGE" focal-shift --calib "$MOD" --first "$L" --second "$R" --distance 10001

# ---- bad input ----
printf 'not an image' >junk.png
head -c 100 "$SAMPLES/aloe-disparity.png" >truncated.png
head -c 2000 "$L" >truncated.jpg
head -c 100 "$MOD" >short.calib
head -c 1000 /dev/zero >small.nv21
run missing_image 1 "cannot open" focal-shift --calib "$MOD" --first nowhere.png --second "$R"
run missing_calib 1 "cannot open" focal-shift --calib nowhere.calib --first "$L" --second "$R"
run not_an_image 1 "raw YUV file needs --format and --size" focal-shift --calib "$MOD" --first junk.png --second "$R"
run truncated_png 1 "not a readable PNG" depthview --calib "$ALOE" --image "$AL" --depth truncated.png
run truncated_jpeg 1 "truncated JPEG" focal-shift --calib "$MOD" --first truncated.jpg --second "$R"
run raw_wrong_size 1 "bytes, but a nv21 frame of 64x48 has 4608" focal-shift --calib "$MOD" --first small.nv21 \
  --second small.nv21 --format nv21 --size 64x48
run raw_odd_size 1 "even width and height" focal-shift --calib "$MOD" --first small.nv21 --second small.nv21 \
  --format nv21 --size 63x48
run bad_format 1 "unknown format 'yuyv'" focal-shift --calib "$MOD" --first "$L" --second "$R" --format yuyv
run bad_size 1 "is not WxH" focal-shift --calib "$MOD" --first small.nv21 --second small.nv21 --format nv21 \
  --size 64by48
run size_mismatch 1 "differ in size" focal-shift --calib "$MOD" --first "$L" --second "$AR"
run colour_depth 1 "one-channel grey" depthview --calib "$ALOE" --image "$AL" --depth demo/in-aloe-left.png
run jpeg_depth 1 "not a PNG" depthview --calib "$ALOE" --image "$AL" --depth "$AL"
run raw_depth_size 1 "bytes, but a depth8 map" depthview --calib "$ALOE" --image "$AL" --depth small.nv21 \
  --depth-format depth8 --depth-size 640x554
run bad_layout 1 "kvDSR_ERR_CAMERA_LAYOUT" focal-shift --camera-layout 7 --calib "$MOD" --first "$L" --second "$R"
run short_calib 2 "kvDSR_ERR_CALIB_LENGTH" focal-shift --calib short.calib --first "$L" --second "$R"
run empty_calib 1 "empty calibration" focal-shift --calib /dev/null --first "$L" --second "$R"
run fs_format 2 "kvDSR_ERR_IMAGE_FORMAT" focal-shift --calib "$MOD" --first "$L" --second "$R" --format i444

# ---- the other engines: outputs, or their status named ----
rc=$(run_engine dv depthview --calib "$ALOE" --image "$AL" --depth "$AD" --view-shift 50 --out dv)
[ "$rc" != 0 ] || [ -s dv-synth.png ] || fail "depthview: no output"
rc=$(run_engine dv_sbs depthview --side-by-side --calib "$ALOE" --image "$AL" --depth "$AD" --format i444 --out dvs)
[ "$rc" != 0 ] || [ -s dvs.png ] || fail "depthview --side-by-side: no output"
head -c $((640 * 360)) /dev/zero >wide.depth8
run dv_size 2 "kvDSR_ERR_SIZE_COMBINATION" depthview --calib "$ALOE" --image "$L" --depth wide.depth8 \
  --depth-format depth8 --depth-size 640x360
rc=$(run_engine bi binocular --calib "$ALOE" --left "$AL" --right "$AR" --depth "$AD" --out bi)
[ "$rc" != 0 ] || [ -s bi-synth.png ] || fail "binocular: no output"
rc=$(run_engine sv stereoview --calib "$MOD" --first "$L" --second "$R" --out sv)
[ "$rc" != 0 ] || [ -s sv-sbs.png ] || fail "stereoview: no output"
rc=$(run_engine sv_sbs stereoview --side-by-side --calib "$MOD" --first "$L" --second "$R" --out svs)
[ "$rc" != 0 ] || [ -s svs.png ] || fail "stereoview --side-by-side: no output"
rc=$(run_engine spr spr --calib "$MOD" --first "$L" --second "$R" --out-size 320x240 --out spr)
[ "$rc" != 0 ] || [ -s spr-first.png ] || fail "spr: no output"

if [ "$failures" != 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all kvdsr tool checks passed"
