"""The five engines as Python classes.

Each engine's state is process-wide in the library: creating an engine object
runs its _Init (replacing any earlier object of the same class, which then
refuses to run), close() or leaving a `with` block runs its _Close. Calls
must not overlap (the library is not re-entrant).
"""

import ctypes
import os

import numpy as np

from . import images
from ._lib import lib
from .images import Format
from .status import check


def _read_calibration(calibration):
    if isinstance(calibration, (bytes, bytearray, memoryview)):
        return bytes(calibration)
    with open(os.fspath(calibration), "rb") as f:
        return f.read()


def _calibration_args(calibration, key):
    """The four calibration arguments of an _Init: container and key material
    (None: the built-in key), both as bytes."""
    data = _read_calibration(calibration) if calibration is not None else None
    key = bytes(key) if key is not None else None
    return [data, len(data) if data else 0, key, len(key) if key else 0]


def _ptr(a):
    return ctypes.c_void_p(a.ctypes.data)


def _size_pair(size, what):
    width, height = (int(v) for v in size)
    if not (0 <= width <= 0xFFFF and 0 <= height <= 0xFFFF):
        raise ValueError("%s %dx%d does not fit the library's 16-bit sizes" % (what, width, height))
    return width, height


class _Engine:
    _close_function = None

    def __init_subclass__(cls, **kwargs):
        super().__init_subclass__(**kwargs)
        cls._active = None

    def _init(self, function, *args):
        check(getattr(lib(), function)(*args), function)
        type(self)._active = self

    def _call(self, function, *args):
        if type(self)._active is not self:
            raise RuntimeError("this %s was closed, or a newer one has re-initialised the engine"
                               % type(self).__name__)
        check(getattr(lib(), function)(*args), function)

    def close(self):
        """Frees the engine's buffers; later runs of this object raise."""
        if type(self)._active is self:
            getattr(lib(), self._close_function)()
            type(self)._active = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


class DepthView(_Engine):
    """A new viewpoint from one image and its disparity map (kvDSR_Init)."""

    _close_function = "kvDSR_Close"

    def __init__(self, calibration, size, depth_size, view_shift, key=None):
        self.size = _size_pair(size, "image")
        self.depth_size = _size_pair(depth_size, "disparity map")
        self._init("kvDSR_Init", *_calibration_args(calibration, key), *self.size, *self.depth_size,
                   int(view_shift))

    def _inputs(self, image, fmt, depth, repair_depth_in_place):
        img, (w, h) = images.input_frame(image, fmt)
        dep, dfmt = images.input_depth(depth, repair_depth_in_place)
        return (img, images.descriptor(img, fmt, w, h), w, h, dep,
                images.descriptor(dep, dfmt, dep.shape[1], dep.shape[0]))

    def run(self, image, depth, fmt=Format.YUV420SP, repair_depth_in_place=False):
        """The synthesised view, in the image's format and shape. The engine
        repairs invalid disparities; with repair_depth_in_place it does so in
        the caller's array, else in a copy."""
        img, d_img, w, h, dep, d_dep = self._inputs(image, fmt, depth, repair_depth_in_place)
        out = images.blank_frame(w, h, fmt)
        self._call("kvDSR_Run", _ptr(out), ctypes.byref(d_img), w, h, ctypes.byref(d_dep),
                   dep.shape[1], dep.shape[0])
        return out

    def run_side_by_side(self, image, depth, fmt=Format.YUV420SP, repair_depth_in_place=False):
        """Synthesised view on the left, the input on the right, in one frame
        twice as wide."""
        img, d_img, w, h, dep, d_dep = self._inputs(image, fmt, depth, repair_depth_in_place)
        out = images.blank_frame(2 * w, h, fmt)
        self._call("kvDSR_Run_SideBySide", _ptr(out), 2 * w, 0, ctypes.byref(d_img), w, h,
                   ctypes.byref(d_dep), dep.shape[1], dep.shape[0])
        return out


class Binocular(_Engine):
    """The depth view from the left image, disoccluded gaps filled from the
    right image (kvDSR_Binocular_*). Frames are YUV420SP."""

    _close_function = "kvDSR_Binocular_Close"

    def __init__(self, calibration, size, depth_size, view_shift, key=None):
        self.size = _size_pair(size, "image")
        self.depth_size = _size_pair(depth_size, "disparity map")
        self._init("kvDSR_Binocular_Init", *_calibration_args(calibration, key), *self.size,
                   *self.depth_size, int(view_shift))

    def run(self, left, right, depth, match_right_in_place=False, repair_depth_in_place=False):
        """The synthesised view. The engine colour-matches the right image to
        the left one and repairs the disparity map: in the caller's arrays
        with the *_in_place flags, else in copies."""
        fmt = Format.YUV420SP
        l, (w, h) = images.input_frame(left, fmt)
        if match_right_in_place:
            images.frame_size(right, fmt)
            images.require_writable(right, "colour-matching the right image in place")
            r = right
        else:
            r = np.array(right, dtype=np.uint8, order="C", copy=True)
        if images.frame_size(r, fmt) != (w, h):
            raise ValueError("left and right frames differ in size")
        dep, dfmt = images.input_depth(depth, repair_depth_in_place)
        d_l, d_r = images.descriptor(l, fmt, w, h), images.descriptor(r, fmt, w, h)
        d_dep = images.descriptor(dep, dfmt, dep.shape[1], dep.shape[0])
        out = images.blank_frame(w, h, fmt)
        self._call("kvDSR_Binocular_Run", _ptr(out), ctypes.byref(d_l), ctypes.byref(d_r), w, h,
                   ctypes.byref(d_dep), dep.shape[1], dep.shape[0])
        return out


def _pair(camera1, camera2, fmt):
    a, size1 = images.input_frame(camera1, fmt)
    b, size2 = images.input_frame(camera2, fmt)
    if size1 != size2:
        raise ValueError("the two frames differ in size: %s and %s" % (size1, size2))
    w, h = size1
    return a, b, images.descriptor(a, fmt, w, h), images.descriptor(b, fmt, w, h), w, h


class StereoView(_Engine):
    """Rectifies both cameras' frames (kvDSR_StereoView_*)."""

    _close_function = "kvDSR_StereoView_Close"

    def __init__(self, calibration, size, key=None):
        self.size = _size_pair(size, "frame")
        self._init("kvDSR_StereoView_Init", *_calibration_args(calibration, key), *self.size)

    def run(self, camera1, camera2, fmt=Format.YUV420SP):
        """(rectified camera 1, rectified camera 2) in the input format; for
        YUV444P input only the luma planes, shape (height, width)."""
        a, b, d1, d2, w, h = _pair(camera1, camera2, fmt)
        if Format(fmt) == Format.YUV444P:
            out1, out2 = np.zeros((h, w), np.uint8), np.zeros((h, w), np.uint8)
        else:
            out1, out2 = images.blank_frame(w, h, fmt), images.blank_frame(w, h, fmt)
        # The C call takes camera 2 first.
        self._call("kvDSR_StereoView_Run", _ptr(out2), _ptr(out1), ctypes.byref(d2), ctypes.byref(d1), w, h)
        return out1, out2

    def run_side_by_side(self, camera1, camera2, fmt=Format.YUV420SP):
        """Both rectified frames in one, camera 1 on the left: a frame of the
        input format twice as wide (YUV444P: luma only, (height, 2 * width))."""
        a, b, d1, d2, w, h = _pair(camera1, camera2, fmt)
        if Format(fmt) == Format.YUV444P:
            out = np.zeros((h, 2 * w), np.uint8)
        else:
            out = images.blank_frame(2 * w, h, fmt)
        self._call("kvDSR_StereoView_Run_SideBySide", _ptr(out), 2 * w, h, ctypes.byref(d2),
                   ctypes.byref(d1), w, h)
        return out


class SPR(_Engine):
    """Rectifies YUV420SP pairs from one size to another (kvDSR_SPR_*)."""

    _close_function = "kvDSR_SPR_Close"

    def __init__(self, calibration, in_size, out_size, key=None):
        self.in_size = _size_pair(in_size, "input")
        self.out_size = _size_pair(out_size, "output")
        self._init("kvDSR_SPR_Init", *_calibration_args(calibration, key), *self.in_size, *self.out_size)

    def run(self, camera1, camera2):
        """(camera 1, camera 2) rectified and scaled to out_size."""
        a, b, d1, d2, w, h = _pair(camera1, camera2, Format.YUV420SP)
        ow, oh = self.out_size
        out1 = images.blank_frame(ow, oh, Format.YUV420SP)
        out2 = images.blank_frame(ow, oh, Format.YUV420SP)
        self._call("kvDSR_SPR_Run", _ptr(out2), _ptr(out1), ctypes.byref(d2), ctypes.byref(d1), w, h, ow, oh)
        return out1, out2


class FocalShift(_Engine):
    """Slides the two views so that objects at `distance` line up
    (kvDSR_StereoView_FocalAlignmentShift*). Frames are YUV420SP or YUV420P;
    columns the shift uncovers come out black."""

    _close_function = "kvDSR_StereoView_FocalAlignmentShift_Close"

    def __init__(self, calibration, size, distance, key=None):
        self.size = _size_pair(size, "frame")
        self._init("kvDSR_StereoView_FocalAlignmentShift_Init", *_calibration_args(calibration, key),
                   *self.size, int(distance))

    def run(self, camera1, camera2, fmt=Format.YUV420SP):
        """(camera 1 slid left, camera 2 slid right)."""
        a, b, d1, d2, w, h = _pair(camera1, camera2, fmt)
        out1, out2 = images.blank_frame(w, h, fmt), images.blank_frame(w, h, fmt)
        self._call("kvDSR_StereoView_FocalAlignmentShift", _ptr(out2), _ptr(out1), ctypes.byref(d2),
                   ctypes.byref(d1), w, h)
        return out1, out2

    def run_side_by_side(self, frame, fmt=Format.YUV420SP, halve=False):
        """One side-by-side frame: left half slid left, right half right.
        With halve, the result is half as wide (every other pixel); that needs
        a frame no larger than two of the Init size."""
        a, (w, h) = images.input_frame(frame, fmt)
        d = images.descriptor(a, fmt, w, h)
        out_w = w // 2 if halve else w
        out = images.blank_frame(out_w, h, fmt)
        self._call("kvDSR_StereoView_FocalAlignmentShiftSideBySide", _ptr(out), out_w, h, ctypes.byref(d), w, h)
        return out
