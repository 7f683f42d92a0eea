"""Version, settings, status codes and the errors of the C interface as
Python sees them; the package's tables against the header."""

import subprocess
import sys

import numpy as np
import pytest

import kvdsr
from conftest import CHESS_CALIB, header_defines


def test_status_codes_are_the_headers():
    header = header_defines(r"kvDSR_(OK|ERR_\w+)")
    ours = {kvdsr.status_name(s): int(s) for s in kvdsr.Status}
    assert ours == header


def test_formats_are_the_headers():
    header = header_defines(r"kvDSR_FMT_\w+")
    assert {"kvDSR_FMT_" + f.name: int(f) for f in kvdsr.Format} == header


def test_version_is_the_headers():
    macros = header_defines(r"KVDSR_VERSION_\w+")
    assert kvdsr.version() == macros["KVDSR_VERSION_STRING"]
    assert kvdsr.version() == "%d.%d" % (macros["KVDSR_VERSION_MAJOR"], macros["KVDSR_VERSION_MINOR"])


def test_unknown_status_name():
    assert kvdsr.status_name(0x7400D) == "unknown status"
    assert kvdsr.status_name(0x74002) == "kvDSR_ERR_NULL_POINTER"


def test_camera_layout_set_get_and_refusal():
    try:
        kvdsr.set_camera_layout(2)
        assert kvdsr.camera_layout() == 2
        for bad in (0, 5, 2**32 - 1):
            with pytest.raises(kvdsr.KvdsrError) as e:
                kvdsr.set_camera_layout(bad)
            assert e.value.code == kvdsr.Status.ERR_CAMERA_LAYOUT
            assert e.value.name == "kvDSR_ERR_CAMERA_LAYOUT"
            assert e.value.function == "kvDSR_CameraLayout_Set"
            assert kvdsr.camera_layout() == 2
    finally:
        kvdsr.set_camera_layout(4)


@pytest.mark.parametrize("make, status", [
    (lambda: kvdsr.StereoView(b"\0" * 100, (64, 48)), kvdsr.Status.ERR_CALIB_LENGTH),
    (lambda: kvdsr.StereoView(None, (64, 48)), kvdsr.Status.ERR_CALIB_NO_DATA),
    (lambda: kvdsr.FocalShift(CHESS_CALIB, (64, 48), 10001), kvdsr.Status.ERR_DISTANCE_RANGE),
    (lambda: kvdsr.DepthView(CHESS_CALIB, (1440, 1080), (480, 270), 50), kvdsr.Status.ERR_SIZE_COMBINATION),
    (lambda: kvdsr.Binocular(CHESS_CALIB, (1440, 1080), (480, 270), 50), kvdsr.Status.ERR_SIZE_COMBINATION),
])
def test_init_errors_raise_with_their_code(make, status):
    with pytest.raises(kvdsr.KvdsrError) as e:
        make()
    assert e.value.code == status
    assert e.value.name == kvdsr.status_name(status)


def test_largest_distance_is_accepted():
    kvdsr.FocalShift(CHESS_CALIB, (64, 48), 10000).close()


def test_closed_or_replaced_engine_refuses_to_run():
    frame = kvdsr.blank_frame(64, 48, kvdsr.Format.YUV420SP)
    first = kvdsr.StereoView(CHESS_CALIB, (64, 48))
    first.run(frame, frame)
    second = kvdsr.StereoView(CHESS_CALIB, (64, 48))
    with pytest.raises(RuntimeError):
        first.run(frame, frame)
    second.run(frame, frame)
    first.close()  # not the active one: must not close the engine under second
    second.run(frame, frame)
    with second:
        pass
    with pytest.raises(RuntimeError):
        second.run(frame, frame)


@pytest.mark.parametrize("shape", [(49, 64), (72, 63), (3, 48, 64)])
def test_frames_of_the_wrong_shape_are_refused(shape):
    with kvdsr.StereoView(CHESS_CALIB, (64, 48)) as sv:
        with pytest.raises(ValueError):
            sv.run(np.zeros(shape, np.uint8), np.zeros(shape, np.uint8))


def test_run_sizes_other_than_inits_are_refused():
    with kvdsr.StereoView(CHESS_CALIB, (64, 48)) as sv:
        frame = kvdsr.blank_frame(32, 48, kvdsr.Format.YUV420SP)
        with pytest.raises(kvdsr.KvdsrError) as e:
            sv.run(frame, frame)
        assert e.value.code == kvdsr.Status.ERR_SIZE_COMBINATION


def test_mixed_orientation_at_first_init_synthesises_nothing():
    # The aspect class lives for the whole process: a fresh one is needed.
    code = """
import numpy as np, kvdsr
rng = np.random.default_rng(5)
image = rng.integers(1, 256, (72, 64), dtype=np.uint8)
depth = rng.integers(20, 60, (64, 48), dtype=np.uint8)  # portrait map, landscape image
with kvdsr.DepthView(%r, (64, 48), (48, 64), 50) as dv:
    out = dv.run(image, depth)
print(int(out[:48].max()), sorted(set(out[48:].ravel().tolist())))
""" % CHESS_CALIB
    out = subprocess.run([sys.executable, "-c", code], check=True, stdout=subprocess.PIPE, text=True).stdout
    assert out.split(None, 1) == ["0", "[128]\n"]
