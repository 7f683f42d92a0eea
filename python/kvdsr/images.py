"""numpy arrays as the library's images.

Frames are C-contiguous uint8 arrays:
  YUV420SP (NV21/NV12) and YUV420P (I420): shape (height * 3 // 2, width),
    luma rows then chroma, the layout OpenCV's YUV conversions use;
  YUV444P: shape (3, height, width), the Y, Cb and Cr planes.
Disparity maps: shape (height, width), uint8 (DEPTH8, 255 = invalid) or
uint16 (DEPTH16, 1/8 pixel, 1023 = invalid).
Descriptors are always packed (strides 0): most engines read packed planes
whatever the strides say, so arrays are made contiguous before a call.
"""

import enum

import numpy as np

from ._lib import ImageDesc


class Format(enum.IntEnum):
    YUV420SP = 0xF01
    YUV444P = 0xF02
    DEPTH8 = 0xF03
    DEPTH16 = 0xF04
    YUV420P = 0xF05


_NEUTRAL_CHROMA = 128


def frame_size(frame, fmt):
    """(width, height) of a frame array in format fmt; ValueError when the
    array does not have that format's shape."""
    fmt = Format(fmt)
    if fmt == Format.YUV444P:
        if frame.ndim != 3 or frame.shape[0] != 3:
            raise ValueError("a YUV444P frame has shape (3, height, width), not %s" % (frame.shape,))
        return frame.shape[2], frame.shape[1]
    if fmt in (Format.YUV420SP, Format.YUV420P):
        if frame.ndim != 2 or frame.shape[0] % 3 or frame.shape[1] % 2:
            raise ValueError("a 4:2:0 frame has shape (height * 3 // 2, width) with even width and "
                             "height, not %s" % (frame.shape,))
        height = frame.shape[0] // 3 * 2
        if height % 2:
            raise ValueError("4:2:0 frames need an even height")
        return frame.shape[1], height
    raise ValueError("%s is not an image format" % fmt.name)


def blank_frame(width, height, fmt):
    """A black frame: luma 0, chroma 128."""
    fmt = Format(fmt)
    if fmt == Format.YUV444P:
        f = np.full((3, height, width), _NEUTRAL_CHROMA, np.uint8)
        f[0] = 0
        return f
    f = np.full((height * 3 // 2, width), _NEUTRAL_CHROMA, np.uint8)
    f[:height] = 0
    return f


def input_frame(frame, fmt):
    """The frame as a contiguous uint8 array (no copy when it is one), and
    its (width, height)."""
    a = np.ascontiguousarray(frame, dtype=np.uint8)
    width, height = frame_size(a, fmt)
    if width > 0xFFFF or height > 0xFFFF:
        raise ValueError("frames are at most 65535 pixels wide and high")
    return a, (width, height)


def depth_format(depth):
    if depth.dtype == np.uint8:
        return Format.DEPTH8
    if depth.dtype == np.uint16:
        return Format.DEPTH16
    raise ValueError("disparity maps are uint8 or uint16, not %s" % depth.dtype)


def input_depth(depth, in_place):
    """The map to hand to the engine, which repairs its invalid samples in
    place: a private copy, or with in_place the caller's own array."""
    fmt = depth_format(depth)
    if depth.ndim != 2:
        raise ValueError("a disparity map has shape (height, width)")
    if not in_place:
        return np.array(depth, order="C", copy=True), fmt
    require_writable(depth, "repairing the disparity map in place")
    return depth, fmt


def require_writable(a, why):
    if not (a.flags.c_contiguous and a.flags.writeable):
        raise ValueError("%s needs a C-contiguous, writable array" % why)


def descriptor(a, fmt, width, height):
    """A packed kvDSR_ImageDesc over array a."""
    fmt = Format(fmt)
    base = a.ctypes.data
    luma = width * height
    planes = {
        Format.YUV420SP: (base, base + luma, 0),
        Format.YUV420P: (base, base + luma, base + luma + (width // 2) * (height // 2)),
        Format.YUV444P: (base, base + luma, base + 2 * luma),
        Format.DEPTH8: (base, 0, 0),
        Format.DEPTH16: (base, 0, 0),
    }[fmt]
    d = ImageDesc()
    d.format = int(fmt)
    for i, p in enumerate(planes):
        d.plane[i] = p or None
    return d
