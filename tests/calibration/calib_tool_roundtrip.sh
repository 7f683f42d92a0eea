#!/usr/bin/env bash
# kvdsr-calib round trip: the sample module packed in every container form,
# inspected, and packed again from the inspection must give the same bytes.
# Usage: calib_tool_roundtrip.sh TOOL SAMPLE_JSON WORK_DIR
set -euo pipefail
tool=$1 sample=$2 work=$3
rm -rf "$work"
mkdir -p "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }

# data/sample-module.json is exactly what the packer library generates.
"$tool" sample -o "$work/regenerated.json"
cmp -s "$sample" "$work/regenerated.json" || fail "$sample differs from 'kvdsr-calib sample' (regenerate it)"

for len in 464 466 496 512 514 544 1403 1488 1499 1547 1643 2080 2801 2993; do
  "$tool" pack "$sample" -o "$work/$len.bin" --length "$len" 2>/dev/null
  [ "$(stat -c %s "$work/$len.bin")" = "$len" ] || fail "pack $len wrote the wrong size"
  "$tool" inspect "$work/$len.bin" --focus 200 > "$work/$len.json" || fail "inspect $len"
  "$tool" pack "$work/$len.json" -o "$work/$len.again.bin" --length "$len" 2>/dev/null
  cmp -s "$work/$len.bin" "$work/$len.again.bin" || fail "round trip of $len"
done
# 3000 mm is the body nearest actuator position 200 in the sample.
grep -q '"index": 2' "$work/1547.json" || fail "focus choice of 1547"

# Keys: a bare 32-byte key, a derived key, and a record inside the blob.
printf '0123456789abcdef0123456789ABCDEF' > "$work/key32"
"$tool" pack "$sample" -o "$work/k32.bin" --length 1547 --encipher --key "$work/key32" 2>/dev/null
[ "$(stat -c %s "$work/k32.bin")" = 1643 ] || fail "--encipher of 1547"
"$tool" inspect "$work/k32.bin" --key "$work/key32" > "$work/k32.json" || fail "inspect with a 32-byte key"
if "$tool" inspect "$work/k32.bin" > /dev/null; then fail "the default key opened a container sealed with another"; fi

"$tool" keyblob -o "$work/blob" --material 0a0b0c0d0e
"$tool" pack "$sample" -o "$work/derived.bin" --length 2080 --key "$work/blob" 2>/dev/null
"$tool" inspect "$work/derived.bin" --key "$work/blob" --layout 1 > "$work/derived.json" || fail "inspect with a derived key"
"$tool" keyblob -o "$work/blob-record" --material 0a0b0c0d0e --record "$work/derived.bin"
: > "$work/empty"
"$tool" inspect "$work/empty" --key "$work/blob-record" --layout 1 > "$work/embedded.json" || fail "inspect the embedded record"
cmp -s "$work/derived.json" "$work/embedded.json" || fail "embedded record reads differently"
echo "kvdsr-calib round trip: ok"
