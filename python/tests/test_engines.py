"""Each engine through the package: the frame layouts the wrapper builds
(plane addresses, output shapes, camera order) and the caller-memory rules,
checked against properties the engines guarantee rather than recorded bytes."""

import os
import subprocess
import sys

import numpy as np
import pytest

import kvdsr
from conftest import CHESS_CALIB, REPO, frame_of

F = kvdsr.Format
W, H = 64, 48  # small synthetic frames (4:3)


def random_frame(rng, fmt, w=W, h=H):
    f = kvdsr.blank_frame(w, h, fmt)
    f[...] = rng.integers(0, 256, f.shape, dtype=np.uint8)
    return f


def disparity(rng, w=W // 2, h=H // 2):
    return rng.integers(20, 60, (h, w), dtype=np.uint8)


def luma(frame, fmt, h):
    return frame[0] if fmt == F.YUV444P else frame[:h]


# ---- Stereo view and SPR ------------------------------------------------------

@pytest.fixture(scope="module")
def stereo(chess):
    h, w = chess[0].shape
    with kvdsr.StereoView(CHESS_CALIB, (w, h)) as sv:
        yield sv


@pytest.mark.parametrize("fmt", [F.YUV420SP, F.YUV420P, F.YUV444P])
def test_stereo_side_by_side_is_the_two_outputs_side_by_side(stereo, chess, rng, fmt):
    h, w = chess[0].shape
    a, b = frame_of(chess[0], fmt, rng), frame_of(chess[1], fmt, rng)
    out1, out2 = stereo.run(a, b, fmt)
    sbs = stereo.run_side_by_side(a, b, fmt)
    assert np.array_equal(sbs[:h], np.hstack([out1[:h], out2[:h]]))  # YUV444P outputs are luma only
    if fmt == F.YUV420SP:
        assert np.array_equal(sbs[h:], np.hstack([out1[h:], out2[h:]]))
    elif fmt == F.YUV420P:
        q = (w // 2) * (h // 2)
        for k in range(2):  # Cb, then Cr: camera 1's half-width rows, then camera 2's
            rows = [o[h:].ravel()[k * q:(k + 1) * q].reshape(h // 2, w // 2) for o in (out1, out2)]
            assert np.array_equal(sbs[h:].ravel()[2 * k * q:2 * (k + 1) * q].reshape(h // 2, w), np.hstack(rows))


def test_stereo_luma_is_the_same_in_every_format(stereo, chess, rng):
    h = chess[0].shape[0]
    results = []
    for fmt in (F.YUV420SP, F.YUV420P, F.YUV444P):
        out1, out2 = stereo.run(frame_of(chess[0], fmt, rng), frame_of(chess[1], fmt, rng), fmt)
        results.append((out1[:h], out2[:h]))
    for other in results[1:]:
        assert np.array_equal(other[0], results[0][0]) and np.array_equal(other[1], results[0][1])


def test_stereo_camera_order_and_planar_chroma(stereo, chess, rng):
    # Chroma that is the same constant in a plane comes out that constant
    # wherever the warp samples inside the frame; swapped planes would not.
    h, w = chess[0].shape
    a, b = frame_of(chess[0], F.YUV420P), frame_of(chess[1], F.YUV420P)
    q = (w // 2) * (h // 2)
    for f, (cb, cr) in ((a, (60, 200)), (b, (90, 30))):
        f[h:].ravel()[:q] = cb
        f[h:].ravel()[q:] = cr
    out1, out2 = stereo.run(a, b, F.YUV420P)
    for out, (cb, cr) in ((out1, (60, 200)), (out2, (90, 30))):
        c = out[h:].ravel()
        assert np.median(c[:q]) == cb and np.median(c[q:]) == cr
    # Camera 1's rectified view is the one that matches the left image best.
    d_same = np.abs(out1[:h].astype(int) - chess[0]).mean()
    d_swapped = np.abs(out1[:h].astype(int) - chess[1]).mean()
    assert d_same < d_swapped


def test_stereo_reads_padded_arrays_as_their_pixels(stereo, chess, rng):
    h, w = chess[0].shape
    a, b = frame_of(chess[0], F.YUV420SP, rng), frame_of(chess[1], F.YUV420SP, rng)
    wide = np.zeros((a.shape[0], w + 64), np.uint8)
    wide[:, :w] = a
    padded = wide[:, :w]  # rows w + 64 bytes apart
    assert not padded.flags.c_contiguous
    assert all(np.array_equal(x, y) for x, y in zip(stereo.run(padded, b), stereo.run(a, b)))


def test_spr_at_the_same_size_matches_the_stereo_view(stereo, chess):
    # A 4:3 frame takes the stereo view's model branch, as SPR always does.
    h, w = chess[0].shape
    a, b = frame_of(chess[0], F.YUV420SP), frame_of(chess[1], F.YUV420SP)
    with kvdsr.SPR(CHESS_CALIB, (w, h), (w, h)) as spr:
        got = spr.run(a, b)
    want = stereo.run(a, b)
    assert np.array_equal(got[0], want[0]) and np.array_equal(got[1], want[1])


def test_spr_scales_to_its_output_size(chess):
    h, w = chess[0].shape
    a, b = frame_of(chess[0], F.YUV420SP), frame_of(chess[1], F.YUV420SP)
    with kvdsr.SPR(CHESS_CALIB, (w, h), (w // 2, h // 2)) as spr:
        out1, out2 = spr.run(a, b)
    assert out1.shape == out2.shape == (h // 2 * 3 // 2, w // 2)
    assert out1[: h // 2].std() > 10  # the board, not an empty frame


# ---- Focal alignment shift ------------------------------------------------------

def slide(frame, s, left):
    """frame slid by s columns, uncovered columns black (luma 0, chroma 128)."""
    h = frame.shape[0] * 2 // 3
    out = kvdsr.blank_frame(frame.shape[1], h, F.YUV420SP)
    w = frame.shape[1]
    if left:
        out[:, :w - s] = frame[:, s:]
    else:
        out[:, s:] = frame[:, :w - s]
    return out


@pytest.fixture(scope="module")
def focal(chess):
    h, w = chess[0].shape
    with kvdsr.FocalShift(CHESS_CALIB, (w, h), 114) as fs:
        yield fs


def found_shift(out, frame):
    return next(s for s in range(frame.shape[1]) if np.array_equal(out, slide(frame, s, left=True)))


def test_focal_shift_slides_camera1_left_and_camera2_right(focal, chess, rng):
    a, b = frame_of(chess[0], F.YUV420SP, rng), frame_of(chess[1], F.YUV420SP, rng)
    out1, out2 = focal.run(a, b)
    s = found_shift(out1, a)
    assert s > 0
    assert np.array_equal(out2, slide(b, s, left=False))


def test_focal_side_by_side_shifts_each_half(focal, chess, rng):
    a, b = frame_of(chess[0], F.YUV420SP, rng), frame_of(chess[1], F.YUV420SP, rng)
    s = found_shift(focal.run(a, b)[0], a)
    frame = np.hstack([a, b])
    out = focal.run_side_by_side(frame)
    w = a.shape[1]
    assert np.array_equal(out[:, :w], slide(a, s, left=True))
    assert np.array_equal(out[:, w:], slide(b, s, left=False))
    halved = focal.run_side_by_side(frame, halve=True)
    pairs = out.reshape(out.shape[0], -1, 4)[:, :, :2].reshape(out.shape[0], -1)
    assert np.array_equal(halved, pairs)


def test_focal_half_width_frame_larger_than_init_is_refused(focal, chess):
    h, w = chess[0].shape
    big = kvdsr.blank_frame(2 * w + 4, h, F.YUV420SP)
    with pytest.raises(kvdsr.KvdsrError) as e:
        focal.run_side_by_side(big, halve=True)
    assert e.value.code == kvdsr.Status.ERR_SIZE_COMBINATION


# ---- Depth view and binocular -------------------------------------------------

@pytest.fixture
def depthview():
    with kvdsr.DepthView(CHESS_CALIB, (W, H), (W // 2, H // 2), 50) as dv:
        yield dv


@pytest.mark.parametrize("fmt", [F.YUV420SP, F.YUV444P])
def test_depth_view_flat_map_copies_the_image(depthview, rng, fmt):
    image = random_frame(rng, fmt)
    flat = np.full((H // 2, W // 2), 40, np.uint8)
    assert np.array_equal(depthview.run(image, flat, fmt), image)


@pytest.mark.parametrize("fmt", [F.YUV420SP, F.YUV444P])
def test_depth_view_side_by_side_keeps_the_input_on_the_right(depthview, rng, fmt):
    image = random_frame(rng, fmt)
    depth = disparity(rng)
    sbs = depthview.run_side_by_side(image, depth, fmt)
    assert sbs.shape[:-1] == image.shape[:-1] and sbs.shape[-1] == 2 * W
    assert np.array_equal(sbs[..., W:], image)
    single = depthview.run(image, depth, fmt)
    assert luma(single, fmt, H).std() > 0 and not np.array_equal(single, image)


@pytest.mark.parametrize("dtype, invalid", [(np.uint8, 255), (np.uint16, 1023)])
def test_depth_map_is_repaired_in_place_only_when_asked(depthview, rng, dtype, invalid):
    image = random_frame(rng, F.YUV420SP)
    depth = disparity(rng).astype(dtype) * (8 if dtype == np.uint16 else 1)
    depth[3, 4] = depth[10, 0] = invalid
    before = depth.copy()
    first = depthview.run(image, depth)
    assert np.array_equal(depth, before)
    second = depthview.run(image, depth, repair_depth_in_place=True)
    assert np.array_equal(first, second)
    holes = before == invalid
    assert not np.any(depth[holes] == invalid)
    assert np.array_equal(depth[~holes], before[~holes])


def test_depth_map_in_place_needs_a_writable_contiguous_array(depthview, rng):
    depth = disparity(rng, W, H)[::2, ::2]  # a strided view
    with pytest.raises(ValueError):
        depthview.run(random_frame(rng, F.YUV420SP), depth, repair_depth_in_place=True)
    out = depthview.run(random_frame(rng, F.YUV420SP), depth)  # copied: fine
    assert out.shape == (H * 3 // 2, W)


def test_binocular_colour_matches_right_in_place_only_when_asked(rng):
    left = random_frame(rng, F.YUV420SP)
    right = np.clip(left.astype(int) + 40, 0, 255).astype(np.uint8)  # a brighter second camera
    depth = disparity(rng)
    left_before, right_before = left.copy(), right.copy()
    with kvdsr.Binocular(CHESS_CALIB, (W, H), (W // 2, H // 2), 50) as bino:
        first = bino.run(left, right, depth)
        assert np.array_equal(right, right_before) and np.array_equal(left, left_before)
        second = bino.run(left, right, depth, match_right_in_place=True)
    assert np.array_equal(first, second)
    assert not np.array_equal(right, right_before)
    assert abs(right[:H].mean() - left[:H].mean()) < abs(right_before[:H].mean() - left[:H].mean())
    assert np.array_equal(left, left_before)


# ---- The example --------------------------------------------------------------

def test_chessboard_example_reduces_the_vertical_disparity():
    pytest.importorskip("cv2")
    script = os.path.join(REPO, "python", "examples", "rectify_chessboard.py")
    out = subprocess.run([sys.executable, script], check=True, stdout=subprocess.PIPE, text=True).stdout
    means = [float(line.split("mean |dy|")[1].split()[0]) for line in out.splitlines() if "mean |dy|" in line]
    assert len(means) == 2
    before, after = means
    assert before > 5 and after < 0.5
