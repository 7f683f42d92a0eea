#!/usr/bin/python3
"""Rectifies the bundled chessboard pair with the stereo view engine and
prints the residual vertical disparity of the board's corners, before and
after.

usage: rectify_chessboard.py [--data DIR] [--save PREFIX]
  DIR: the folder with chess-left.jpg, chess-right.jpg, chess-rig.calib
       (default: the repository's data/samples)
  PREFIX: also writes PREFIX-left.png and PREFIX-right.png (rectified)
Needs python3-opencv for reading images and finding corners."""

import argparse
import os
import sys

import cv2
import numpy as np

import kvdsr

BOARD = (9, 6)  # inner corners per row and column
DEFAULT_DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "data", "samples")


def corners(grey):
    ok, c = cv2.findChessboardCorners(grey, BOARD, flags=cv2.CALIB_CB_ADAPTIVE_THRESH | cv2.CALIB_CB_NORMALIZE_IMAGE)
    if not ok:
        return None
    cv2.cornerSubPix(grey, c, (11, 11), (-1, -1), (cv2.TERM_CRITERIA_EPS + cv2.TERM_CRITERIA_MAX_ITER, 30, 0.01))
    return c.reshape(-1, 2)


def vertical_disparity(left, right):
    """|y_left - y_right| of matching corners, or None if a board is not found."""
    a, b = corners(left), corners(right)
    return None if a is None or b is None else np.abs(a[:, 1] - b[:, 1])


def as_frame(grey):
    """A grey image as a YUV420SP frame with neutral chroma."""
    h, w = grey.shape
    frame = kvdsr.blank_frame(w, h, kvdsr.Format.YUV420SP)
    frame[:h] = grey
    return frame


def report(label, d):
    if d is None:
        print("%s: chessboard not found in both views" % label)
    else:
        print("%s: mean |dy| %.3f px, max %.3f px over %d corners" % (label, d.mean(), d.max(), len(d)))


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--data", default=DEFAULT_DATA)
    p.add_argument("--save")
    args = p.parse_args()
    left = cv2.imread(os.path.join(args.data, "chess-left.jpg"), cv2.IMREAD_GRAYSCALE)
    right = cv2.imread(os.path.join(args.data, "chess-right.jpg"), cv2.IMREAD_GRAYSCALE)
    if left is None or right is None:
        print("no chessboard pair in %s (use --data)" % args.data)
        return 2
    h, w = left.shape

    # OpenCV's left camera is the rig's camera 1.
    with kvdsr.StereoView(os.path.join(args.data, "chess-rig.calib"), (w, h)) as engine:
        out1, out2 = engine.run(as_frame(left), as_frame(right))
    rect_left, rect_right = out1[:h], out2[:h]

    before, after = vertical_disparity(left, right), vertical_disparity(rect_left, rect_right)
    print("libkvDSR %s, %dx%d chessboard pair" % (kvdsr.version(), w, h))
    report("before rectification", before)
    report("after rectification ", after)
    if args.save:
        cv2.imwrite(args.save + "-left.png", rect_left)
        cv2.imwrite(args.save + "-right.png", rect_right)
    return 0 if before is not None and after is not None else 1


if __name__ == "__main__":
    sys.exit(main())
