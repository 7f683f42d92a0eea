#!/usr/bin/python3
"""Real-rig check: calibrates the chessboard stereo rig of Debian's opencv-doc
with OpenCV, imports the calibration into our container, rectifies every pair
with kvDSR_StereoView_Run and with OpenCV, and compares the vertical disparity
of matching chessboard corners.

usage: validate_rig.py <build-dir>   (a build with tools: kvdsr-calib, kvdsr-stereo-rig)
Exit status 0 when our mean is within 0.1 px of OpenCV's and our maximum is
at most 3 px."""

import os
import subprocess
import sys
import tempfile

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import import_opencv  # noqa: E402
import rig_opencv  # noqa: E402

MEAN_TOLERANCE = 0.1
MAX_DISPARITY = 3.0


def run(tool, *args):
    out = subprocess.run([tool] + [str(a) for a in args], check=True, stdout=subprocess.PIPE, text=True)
    return out.stdout


def rectify_ours(tool, container, pairs, tmp, size):
    w, h = size
    args = []
    for i, (n, l, r) in enumerate(pairs):
        names = [os.path.join(tmp, "%02d_%s.raw" % (n, s)) for s in ("in1", "in2", "out1", "out2")]
        np.ascontiguousarray(l).tofile(names[0])
        np.ascontiguousarray(r).tofile(names[1])
        args += names
    run(tool, "rectify", container, w, h, *args)
    out = []
    for i in range(0, len(args), 4):
        a = np.fromfile(args[i + 2], np.uint8).reshape(h, w)
        b = np.fromfile(args[i + 3], np.uint8).reshape(h, w)
        out.append((a, b))
    return out


def corner_agreement(ours, reference):
    """Distance between the corners found in our rectified views and in
    OpenCV's, view by view: how closely the two rectifications agree."""
    d = []
    for o, r in zip(ours, reference):
        for a, b in zip(o, r):
            ca, cb = rig_opencv.find_corners(a), rig_opencv.find_corners(b)
            if ca is not None and cb is not None:
                d.extend(np.hypot(*(ca - cb).T).tolist())
    return np.array(d)


def line(name, s, found):
    return "%-22s pairs %2d  corners %4d  mean %.3f px  p95 %.3f px  max %.3f px" % (
        name, found, s["n"], s["mean"], s["p95"], s["max"])


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    for t in import_opencv.tools_in(sys.argv[1]):
        if not os.access(t, os.X_OK):
            print("missing %s (build with KVDSR_BUILD_TOOLS=ON)" % t)
            return 2
    tool = import_opencv.tools_in(sys.argv[1])[1]

    pairs = rig_opencv.load_pairs()
    if not pairs:
        print("no chessboard pairs in %s (package opencv-doc)" % rig_opencv.DATA_DIR)
        return 2
    cal = rig_opencv.calibrate(pairs)
    size = tuple(cal["size"])
    print("rig: %d pairs of %dx%d, stereo rms %.3f px" % (cal["pairs_used"], size[0], size[1], cal["rms"]))

    with tempfile.TemporaryDirectory() as tmp:
        container = os.path.join(tmp, "rig.bin")
        scales = import_opencv.import_to_container(cal, sys.argv[1], container)
        print("fill scales: camera 1 %.6f, camera 2 %.6f" % scales)

        ours = rectify_ours(tool, container, pairs, tmp, size)
        reference = [rig_opencv.rectify_opencv(cal, l, r) for _, l, r in pairs]

        # The 16:9 crop branch: the centre 16:9 rows of every frame.
        ch = 9 * (size[0] // 16)
        y0 = (size[1] - ch) // 2
        cropped = [(n, l[y0:y0 + ch], r[y0:y0 + ch]) for n, l, r in pairs]
        ours_crop = rectify_ours(tool, container, cropped, tmp, (size[0], ch))

    d_ref, f_ref = rig_opencv.vertical_disparity(reference)
    d_our, f_our = rig_opencv.vertical_disparity(ours)
    d_crop, f_crop = rig_opencv.vertical_disparity(ours_crop)
    s_ref, s_our = rig_opencv.stats(d_ref), rig_opencv.stats(d_our)
    print(line("opencv", s_ref, f_ref))
    print(line("kvDSR_StereoView_Run", s_our, f_our))
    if len(d_crop):
        print(line("kvDSR 16:9 crop %dx%d" % (size[0], ch), rig_opencv.stats(d_crop), f_crop))

    shifted = [tuple(np.vstack([np.zeros((y0, size[0]), np.uint8), v, np.zeros((size[1] - y0 - ch, size[0]), np.uint8)])
                     for v in pair) for pair in ours_crop]
    crop_agree = corner_agreement(shifted, ours)
    if len(crop_agree):
        print("16:9 crop corners vs the full-frame run's (rows shifted by %d): mean %.3f px, max %.3f px" % (
            y0, np.mean(crop_agree), np.max(crop_agree)))

    agree = corner_agreement(ours, reference)
    if len(agree):
        print("corner positions, ours vs opencv: mean %.3f px, p95 %.3f px, max %.3f px" % (
            np.mean(agree), np.percentile(agree, 95), np.max(agree)))

    ok = abs(s_our["mean"] - s_ref["mean"]) <= MEAN_TOLERANCE and s_our["max"] <= MAX_DISPARITY
    ok = ok and f_our >= f_ref
    print("goal (mean within %.1f px of opencv, max <= %.0f px, every pair found): %s" % (
        MEAN_TOLERANCE, MAX_DISPARITY, "met" if ok else "NOT met"))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
