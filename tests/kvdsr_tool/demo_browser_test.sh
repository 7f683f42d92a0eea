#!/usr/bin/env bash
# Usage: demo_browser_test.sh KVDSR WORKDIR
# Writes the demo page and opens it in a real headless browser (Debian's
# chromium, installed by scripts/setup): every picture must decode, each
# section must show its timing and its figure of merit, and a screenshot of
# the page must show something (its pixels are not all one colour).
set -u
KVDSR=$1
WORK=$2
CHROMIUM=${CHROMIUM:-/usr/bin/chromium}
rm -rf "$WORK"
mkdir -p "$WORK"
cd "$WORK" || exit 1

if [ ! -x "$CHROMIUM" ]; then
  echo "FAIL: $CHROMIUM not found (install it with scripts/setup)"
  exit 1
fi

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

"$KVDSR" demo --strict --out demo >demo.log 2>&1 || { fail "demo exited $?"; cat demo.log; }

browser() {
  # A fresh profile each time; no network, no background services.
  timeout 120 "$CHROMIUM" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --user-data-dir="$WORK/profile-$1" "${@:2}" "file://$WORK/demo/index.html" 2>"browser-$1.err"
}

browser dom --dump-dom >dom.html || fail "chromium --dump-dom exited $?"
images=$(grep -o '<img ' dom.html | wc -l)
shown=$(grep -o 'data-images-shown="[0-9]*"' dom.html | grep -o '[0-9]*')
[ "$images" -ge 20 ] || fail "the page has $images pictures, expected at least 20"
[ "${shown:-0}" = "$images" ] || fail "the browser decoded ${shown:-no} of $images pictures"
# Paths relative to the page only.
if grep -o 'src="[^"]*"' dom.html | grep -q 'src="/\|src="file:'; then fail "absolute picture paths"; fi
if grep -q "$(dirname "$WORK")" dom.html; then fail "the page names the build machine's folders"; fi

sections=$(grep -c '<h2>' dom.html)
timings=$(grep -c 'Init [0-9.]* ms · run [0-9.]* ms' dom.html)
[ "$sections" -ge 8 ] || fail "$sections sections, expected 8"
[ "$timings" = "$sections" ] || fail "$timings of $sections sections show their timing"
[ "$(grep -c 'PSNR against the real right view: whole [0-9.]* dB' dom.html)" -ge 2 ] || fail "PSNR figures missing"
grep -q 'After: vertical disparity of the 54 board corners mean [0-9.]* px' dom.html ||
  fail "the rectification's residual vertical disparity is missing"
grep -q 'Before: vertical disparity of the 54 board corners' dom.html || fail "the unrectified disparity is missing"
grep -qi 'black' dom.html || fail "no word on the black borders"

browser shot --window-size=1400,6000 --screenshot="$WORK/page.png" >/dev/null || fail "chromium --screenshot exited $?"
/usr/bin/python3 - "$WORK/page.png" <<'PY' || fail "the screenshot is empty or one colour"
import sys
import cv2
import numpy as np
img = cv2.imread(sys.argv[1])
if img is None:
    sys.exit("no screenshot")
flat = img.reshape(-1, 3)
colours = len(np.unique(flat[:: max(1, len(flat) // 200000)], axis=0))
print("screenshot %dx%d, %d colours in a sample" % (img.shape[1], img.shape[0], colours))
sys.exit(0 if colours > 1000 else 1)
PY

if [ "$failures" != 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "demo page renders: $images pictures, $sections sections with timings and figures of merit"
