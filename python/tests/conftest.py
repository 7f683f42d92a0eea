"""Shared fixtures: the repository's header and sample data (or those named
by $KVDSR_HEADER and $KVDSR_SAMPLES), chessboard frames."""

import os
import re

import numpy as np
import pytest

import kvdsr

REPO = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
HEADER = os.environ.get("KVDSR_HEADER") or os.path.join(REPO, "include", "kvDSR.h")
SAMPLES = os.environ.get("KVDSR_SAMPLES") or os.path.join(REPO, "data", "samples")
CHESS_CALIB = os.path.join(SAMPLES, "chess-rig.calib")


def header_defines(pattern):
    """{name: value} of the header's #defines whose name matches pattern."""
    found = {}
    with open(HEADER) as f:
        for line in f:
            m = re.match(r"#define\s+(\w+)\s+(0x[0-9A-Fa-f]+|[0-9]+|\"[^\"]*\")", line)
            if m and re.fullmatch(pattern, m.group(1)):
                v = m.group(2)
                found[m.group(1)] = v.strip('"') if v.startswith('"') else int(v.rstrip("u"), 0)
    return found


@pytest.fixture(scope="session")
def chess():
    """The chessboard pair as grey images (camera 1, camera 2)."""
    cv2 = pytest.importorskip("cv2")
    left = cv2.imread(os.path.join(SAMPLES, "chess-left.jpg"), cv2.IMREAD_GRAYSCALE)
    right = cv2.imread(os.path.join(SAMPLES, "chess-right.jpg"), cv2.IMREAD_GRAYSCALE)
    assert left is not None and right is not None
    return left, right


def frame_of(grey, fmt, rng=None):
    """grey as luma of a frame in fmt; chroma random (rng) or neutral."""
    h, w = grey.shape
    f = kvdsr.blank_frame(w, h, fmt)
    if fmt == kvdsr.Format.YUV444P:
        f[0] = grey
        if rng is not None:
            f[1:] = rng.integers(0, 256, f[1:].shape, dtype=np.uint8)
    else:
        f[:h] = grey
        if rng is not None:
            f[h:] = rng.integers(0, 256, f[h:].shape, dtype=np.uint8)
    return f


@pytest.fixture
def rng():
    return np.random.default_rng(2024)
