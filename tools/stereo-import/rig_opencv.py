"""OpenCV side of the real-rig check: calibrates the chessboard stereo rig that
Debian's opencv-doc ships, rectifies its pairs with OpenCV and measures the
vertical disparity of matching chessboard corners.

Run alone it prints OpenCV's own numbers; given a path it also saves the
calibration for import_opencv.py."""

import os

import cv2
import numpy as np

DATA_DIR = "/usr/share/doc/opencv-doc/examples/data"
BOARD = (9, 6)  # inner corners per row and column
SQUARE = 1.0  # the board's unit: translations come out in squares


def load_pairs(data_dir=DATA_DIR):
    """Grey images of every numbered left/right pair that exists."""
    pairs = []
    for i in range(1, 15):
        left = os.path.join(data_dir, "left%02d.jpg" % i)
        right = os.path.join(data_dir, "right%02d.jpg" % i)
        if os.path.exists(left) and os.path.exists(right):
            l = cv2.imread(left, cv2.IMREAD_GRAYSCALE)
            r = cv2.imread(right, cv2.IMREAD_GRAYSCALE)
            if l is not None and r is not None:
                pairs.append((i, l, r))
    return pairs


def find_corners(img):
    ok, corners = cv2.findChessboardCorners(
        img, BOARD, flags=cv2.CALIB_CB_ADAPTIVE_THRESH | cv2.CALIB_CB_NORMALIZE_IMAGE)
    if not ok:
        return None
    crit = (cv2.TERM_CRITERIA_EPS + cv2.TERM_CRITERIA_MAX_ITER, 30, 0.01)
    cv2.cornerSubPix(img, corners, (11, 11), (-1, -1), crit)
    return corners.reshape(-1, 2)


def calibrate(pairs):
    """Stereo calibration with three radial terms (no tangential), as our
    distortion model is radial only. Returns a dict of numpy arrays."""
    obj = np.zeros((BOARD[0] * BOARD[1], 3), np.float32)
    obj[:, :2] = np.mgrid[0:BOARD[0], 0:BOARD[1]].T.reshape(-1, 2) * SQUARE
    objs, pts1, pts2 = [], [], []
    size = None
    for _, l, r in pairs:
        size = (l.shape[1], l.shape[0])
        c1, c2 = find_corners(l), find_corners(r)
        if c1 is None or c2 is None:
            continue
        objs.append(obj)
        pts1.append(c1.astype(np.float32))
        pts2.append(c2.astype(np.float32))
    flags = cv2.CALIB_ZERO_TANGENT_DIST
    _, K1, D1, _, _ = cv2.calibrateCamera(objs, pts1, size, None, None, flags=flags)
    _, K2, D2, _, _ = cv2.calibrateCamera(objs, pts2, size, None, None, flags=flags)
    crit = (cv2.TERM_CRITERIA_COUNT + cv2.TERM_CRITERIA_EPS, 100, 1e-5)
    rms, K1, D1, K2, D2, R, T, _, _ = cv2.stereoCalibrate(
        objs, pts1, pts2, K1, D1, K2, D2, size, criteria=crit,
        flags=cv2.CALIB_FIX_INTRINSIC | cv2.CALIB_ZERO_TANGENT_DIST)
    R1, R2, P1, P2, _, _, _ = cv2.stereoRectify(K1, D1, K2, D2, size, R, T, alpha=0)
    return {"size": size, "K1": K1, "D1": D1.ravel(), "K2": K2, "D2": D2.ravel(), "R": R, "T": T.ravel(),
            "R1": R1, "R2": R2, "P1": P1, "P2": P2, "rms": rms, "pairs_used": len(objs)}


def rectify_opencv(calib, left, right):
    size = calib["size"]
    m1 = cv2.initUndistortRectifyMap(calib["K1"], calib["D1"], calib["R1"], calib["P1"], size, cv2.CV_32FC1)
    m2 = cv2.initUndistortRectifyMap(calib["K2"], calib["D2"], calib["R2"], calib["P2"], size, cv2.CV_32FC1)
    return (cv2.remap(left, m1[0], m1[1], cv2.INTER_LINEAR),
            cv2.remap(right, m2[0], m2[1], cv2.INTER_LINEAR))


def vertical_disparity(rect_pairs):
    """|y_left - y_right| of every corner pair found in both rectified views;
    pairs where either board is not found are skipped (count returned)."""
    d = []
    found = 0
    for l, r in rect_pairs:
        c1, c2 = find_corners(l), find_corners(r)
        if c1 is None or c2 is None:
            continue
        found += 1
        d.extend(np.abs(c1[:, 1] - c2[:, 1]).tolist())
    return np.array(d), found


def stats(d):
    return {"mean": float(np.mean(d)), "p95": float(np.percentile(d, 95)), "max": float(np.max(d)), "n": len(d)}


def save_yaml(cal, path):
    """The calibration as import_opencv.py reads it."""
    fs = cv2.FileStorage(path, cv2.FILE_STORAGE_WRITE)
    for k in ("K1", "D1", "K2", "D2", "R", "T", "R1", "R2", "P1", "P2"):
        fs.write(k, np.asarray(cal[k], np.float64))
    fs.write("size", np.array(cal["size"], np.float64))
    fs.release()


if __name__ == "__main__":
    import sys
    pairs = load_pairs()
    cal = calibrate(pairs)
    if len(sys.argv) > 1:
        save_yaml(cal, sys.argv[1])
    print("calibrated on %d pairs, rms %.3f px" % (cal["pairs_used"], cal["rms"]))
    d, found = vertical_disparity([rectify_opencv(cal, l, r) for _, l, r in pairs])
    s = stats(d)
    print("opencv: %d pairs, mean %.3f px, p95 %.3f px, max %.3f px" % (found, s["mean"], s["p95"], s["max"]))
