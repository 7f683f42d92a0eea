"""Python interface to libkvDSR, the dual-camera image-processing engine.

ctypes over the installed shared library; numpy arrays in and out (see
kvdsr.images for the array layouts). Failing calls raise KvdsrError with the
status code and its C name.

    import kvdsr
    with kvdsr.StereoView("module.calib", (640, 480)) as sv:
        left, right = sv.run(frame1, frame2)
"""

import ctypes

from ._lib import library_path, lib
from .engines import SPR, Binocular, DepthView, FocalShift, StereoView
from .images import Format, blank_frame, frame_size
from .status import KvdsrError, Status, status_name, check

__all__ = [
    "Binocular", "DepthView", "FocalShift", "Format", "KvdsrError", "SPR", "Status", "StereoView",
    "blank_frame", "camera_layout", "frame_size", "library_path", "set_camera_layout", "status_name",
    "version",
]


def version():
    """The library's version string (kvDSR_VersionInfo_Get)."""
    buf = ctypes.create_string_buffer(256)
    check(lib().kvDSR_VersionInfo_Get(buf, len(buf)), "kvDSR_VersionInfo_Get")
    return buf.value.decode("ascii")


def camera_layout():
    """The camera layout (1..4) the next _Init reads."""
    layout = ctypes.c_uint32()
    check(lib().kvDSR_CameraLayout_Get(ctypes.byref(layout)), "kvDSR_CameraLayout_Get")
    return layout.value


def set_camera_layout(layout):
    """Sets the camera layout (1..4) for the next _Init."""
    check(lib().kvDSR_CameraLayout_Set(int(layout)), "kvDSR_CameraLayout_Set")
