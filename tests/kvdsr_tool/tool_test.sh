#!/usr/bin/env bash
# Usage: tool_test.sh KVDSR WORKDIR SAMPLES KVDSR_CALIB
# Runs the tool's subcommands on the samples and on broken input: every
# failure must exit with the tool's own code and a clear message, never by
# a signal.
set -u
KVDSR=$1
WORK=$2
SAMPLES=$3
KVDSR_CALIB=$4
. "$(dirname "$0")/checks.sh"
rm -rf "$WORK"
mkdir -p "$WORK"
cd "$WORK" || exit 1


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
# Fed in its own geometry the binocular engine fills the disocclusions from
# the real right image: far better there than the depth view's interpolation.
holes() { grep -A2 "^ok    $1" demo.out | grep -o 'disoccluded holes [0-9.]*' | grep -o '[0-9.]*$'; }
dv_holes=$(holes "Depth view: the right")
bi_holes=$(holes "Binocular")
awk -v d="${dv_holes:-0}" -v b="${bi_holes:-0}" 'BEGIN { exit !(d > 10 && b > d + 4) }' ||
  fail "demo: holes PSNR binocular ${bi_holes:-?} dB vs depth view ${dv_holes:-?} dB"
grep -q "After: vertical disparity of the 54 board corners mean 0\.[0-4]" demo.out ||
  fail "demo: rectified corners not within half a pixel"
MOD=$SAMPLES/chess-rig.calib
MODULE_JSON=$SAMPLES/../sample-module.json
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
run fs_table 0 "shift -63 px" focal-shift --print-table --calib "$MOD" --distance 114 --width 640
[ "$(grep -c '^[0-9]* [0-9.]* [0-9.]*$' fs_table.out)" = 1024 ] || fail "fs_table: not 1024 table rows"
# Raw output piped: both views on standard output, messages on stderr.
run fs_pipe 0 "" focal-shift --calib "$MOD" --first "$L" --second "$R" --distance 114 --out fsp --raw -
[ "$(size_of fs_pipe.out)" = $((2 * 640 * 480 * 3 / 2)) ] || fail "fs_pipe: standard output is not two frames"
# The calibration tool's JSON, packed on the fly.
run fs_json 0 "shift -30 px" focal-shift --print-table --calib "$MODULE_JSON" --distance 1000 --width 640
printf '{"bodies": 3}' >bad.json
run bad_json 1 "not a calibration document" focal-shift --calib bad.json --first "$L" --second "$R"
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
run colour_depth 1 "one-channel grey" depthview --calib "$ALOE" --image "$AL" --depth demo/depthview.png
run jpeg_depth 1 "not a PNG" depthview --calib "$ALOE" --image "$AL" --depth "$AL"
run raw_depth_size 1 "bytes, but a depth8 map" depthview --calib "$ALOE" --image "$AL" --depth small.nv21 \
  --depth-format depth8 --depth-size 640x554
run bad_layout 1 "kvDSR_ERR_CAMERA_LAYOUT" focal-shift --camera-layout 7 --calib "$MOD" --first "$L" --second "$R"
run short_calib 2 "kvDSR_ERR_CALIB_LENGTH" focal-shift --calib short.calib --first "$L" --second "$R"
run empty_calib 1 "empty calibration" focal-shift --calib /dev/null --first "$L" --second "$R"
run spr_format 1 "nv21 or nv12" spr --calib "$MOD" --first "$L" --second "$R" --out-size 320x240 --format i420
run fs_format 2 "kvDSR_ERR_IMAGE_FORMAT" focal-shift --calib "$MOD" --first "$L" --second "$R" --format i444

# ---- plausibility warnings: stderr only, exit status unchanged ----
/usr/bin/python3 -c "
import random, sys
random.seed(7)
sys.stdout.buffer.write(bytes(random.getrandbits(8) for _ in range(512)))" >random.calib
run random_calib 0 "warning: random.calib, body 0, camera" stereoview --calib random.calib --first "$L" \
  --second "$R" --out rnd
grep -q "warning: output .*every luma sample is" random_calib.err || fail "random_calib: no uniform-output warning"
run plausible_calib 0 "" stereoview --calib "$MOD" --first "$L" --second "$R" --out plaus
grep -q "warning" plausible_calib.err && fail "plausible_calib: warned about a good calibration"
printf '{"bodies": [{"camera1": {"projection": [1,0,0,0, 0,1,0,0, 0,0,1,0], "pixelPitch": "small"}}]}' >typed.json
run json_key 1 "typed.json: .*bodies\[0\].camera1.pixelPitch: expected a number, found string" focal-shift \
  --calib typed.json --first "$L" --second "$R"
printf '{"bodies": [' >broken.json
run json_syntax 1 "broken.json: not JSON: parse error at line 1" focal-shift --calib broken.json --first "$L" \
  --second "$R"
grep -q "json.exception" json_syntax.err json_key.err && fail "raw parser exception text shown"
# The calibration tool: the same warnings beside its JSON, the same errors.
"$KVDSR_CALIB" inspect random.calib >inspect.out 2>inspect.err || fail "inspect random.calib: exit $?"
grep -q '"bodies"' inspect.out || fail "inspect random.calib: no JSON"
grep -q "warning: random.calib, body 0, camera 1: " inspect.err || fail "inspect random.calib: no warning"
"$KVDSR_CALIB" inspect "$MOD" >/dev/null 2>inspect_good.err || fail "inspect $MOD: exit $?"
[ -s inspect_good.err ] && fail "inspect warned about a good container: $(cat inspect_good.err)"
"$KVDSR_CALIB" pack typed.json -o typed.calib 2>pack.err && fail "pack typed.json: succeeded"
grep -q "typed.json: bodies\[0\].camera1.pixelPitch: expected a number" pack.err || fail "pack: key not named"

# ---- geometry: binocular fed mirrored (--depth-of left) or as it is ----
rc=$(run_engine bi_right binocular --calib "$ALOE" --left "$AL" --right "$AR" --depth "$AD" --depth-of right \
  --out bir)
[ "$rc" != 0 ] || { [ -s bir-synth.png ] && [ -s bir-right.png ]; } || fail "binocular --depth-of right: no output"
run bad_direction 1 "direction" depthview --calib "$ALOE" --image "$AL" --depth "$AD" --direction up
run dv_right 0 "wrote" depthview --calib "$ALOE" --image "$AL" --depth "$AD" --direction right --out dvr --raw dvr
run dv_left 0 "wrote" depthview --calib "$ALOE" --image "$AL" --depth "$AD" --out dvl --raw dvl
cmp -s dvr-synth.nv21 dvl-synth.nv21 && fail "--direction right gives the same view as left"

# ---- bench: every engine, small and quick; JSON checked field by field ----
run bench_json 0 "" bench --sizes 128x96 --frames 2 --threads 1 --json
/usr/bin/python3 - bench_json.out <<'PY' || fail "bench --json: wrong content"
import json, sys
doc = json.load(open(sys.argv[1]))
names = {r["engine"] for r in doc["results"]}
want = {"depthview", "depthview-sbs", "binocular", "stereoview", "stereoview-sbs", "spr", "focal-shift",
        "focal-shift-sbs"}
assert names == want, names
for r in doc["results"]:
    assert "error" not in r, r
    assert r["size"] == "128x96" and r["threads"] == 1, r
    assert 0 < r["minMs"] <= r["medianMs"] <= r["p90Ms"] <= r["maxMs"], r
    assert abs(r["fps"] - 1000 / r["medianMs"]) < 1e-6 * r["fps"], r
    assert r["initMs"] > 0 and 0 < r["rssMiB"] <= r["peakMiB"], r
    assert r["busyProcesses"] == 0, r
assert doc["framesPerCase"] == 2 and doc["library"]
assert doc["pacedFps"] == 0 and doc["loadProcesses"] == 0, doc
PY
# Paced, beside busy processes: they run through each case's frames and none
# is left once the tool has exited.
run bench_load 0 "" bench --sizes 64x64 --frames 4 --threads 2 --engines focal-shift,spr --load 1 --fps 200 --json
/usr/bin/python3 - bench_load.out "$(nproc)" <<'PY' || fail "bench --load --fps: wrong content"
import json, sys
doc, cpus = json.load(open(sys.argv[1])), int(sys.argv[2])
assert doc["pacedFps"] == 200 and doc["loadProcesses"] == cpus, doc
assert [r["engine"] for r in doc["results"]] == ["spr", "focal-shift"], doc
for r in doc["results"]:
    assert "error" not in r and r["busyProcesses"] == cpus and r["busyProcessesLasted"], r
    assert 0 < r["minMs"] <= r["medianMs"] <= r["p90Ms"] <= r["maxMs"], r
PY
left=$(ps -eo args | grep -c -- '^[^ ]*kvdsr bench .*--load 1 --fps 200')
[ "$left" = 0 ] || fail "bench --load: $left busy processes left running"
run bench_load_range 1 "--load must be 0..8" bench --load 9 --sizes 64x64
run bench_fps_range 1 "--fps must be 0..1000" bench --fps 1001 --sizes 64x64
run bench_text 0 "depthview" bench --sizes 64x64,128x96 --frames 1 --threads 1,2 --engines depthview,spr
[ "$(grep -c '^\(64x64\|128x96\) ' bench_text.out)" = 8 ] || fail "bench text: not 2 sizes x 2 engines x 2 thread counts"
run bench_size 1 "multiples of 8" bench --sizes 100x75
run bench_engine 1 "unknown engine 'warp'" bench --engines warp --sizes 64x64
run bench_threads 1 "--threads: 0" bench --threads 0 --sizes 64x64
run bench_frames 1 "--frames must be" bench --frames 0 --sizes 64x64

# ---- the other engines: outputs, or their status named ----
rc=$(run_engine dv depthview --calib "$ALOE" --image "$AL" --depth "$AD" --view-shift 50 --out dv)
[ "$rc" != 0 ] || [ -s dv-synth.png ] || fail "depthview: no output"
# A 16-bit map (1/8 pixel, 1023 invalid) of another size but the same aspect class.
D16=$(dirname "$0")/aloe-disparity16.png
rc=$(run_engine dv16 depthview --calib "$ALOE" --image "$AL" --depth "$D16" --view-shift 50 --out dv16)
[ "$rc" != 0 ] || [ -s dv16-synth.png ] || fail "depthview with a 16-bit map: no output"
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

finish "kvdsr tool"
