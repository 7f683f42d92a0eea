"""Loads libkvDSR and declares its 21 functions for ctypes."""

import ctypes
import ctypes.util
import os

_u16, _u32, _i32 = ctypes.c_uint16, ctypes.c_uint32, ctypes.c_int32
_ptr = ctypes.c_void_p
_bytes = ctypes.c_char_p  # calibration and key material: Python bytes


class ImageDesc(ctypes.Structure):
    """kvDSR_ImageDesc: format, three strides, three plane addresses."""

    _fields_ = [("format", _u32), ("stride", _u32 * 3), ("plane", _ptr * 3)]


_desc = ctypes.POINTER(ImageDesc)
_init_args = [_bytes, _u32, _bytes, _u32]

_PROTOTYPES = {
    "kvDSR_Init": _init_args + [_u16] * 5,
    "kvDSR_Run": [_ptr, _desc, _u32, _i32, _desc, _u16, _u16],
    "kvDSR_Run_SideBySide": [_ptr, _u32, _u32, _desc, _u16, _u16, _desc, _u16, _u16],
    "kvDSR_Close": [],
    "kvDSR_Binocular_Init": _init_args + [_u16] * 5,
    "kvDSR_Binocular_Run": [_ptr, _desc, _desc, _u32, _u16, _desc, _u16, _u16],
    "kvDSR_Binocular_Close": [],
    "kvDSR_StereoView_Init": _init_args + [_u16] * 2,
    "kvDSR_StereoView_Run": [_ptr, _ptr, _desc, _desc, _u16, _u16],
    "kvDSR_StereoView_Run_SideBySide": [_ptr, _u32, _u32, _desc, _desc, _u16, _u16],
    "kvDSR_StereoView_Close": [],
    "kvDSR_StereoView_FocalAlignmentShift_Init": _init_args + [_u16] * 3,
    "kvDSR_StereoView_FocalAlignmentShift": [_ptr, _ptr, _desc, _desc, _u16, _u16],
    "kvDSR_StereoView_FocalAlignmentShiftSideBySide": [_ptr, _u32, _u32, _desc, _u16, _u16],
    "kvDSR_StereoView_FocalAlignmentShift_Close": [],
    "kvDSR_SPR_Init": _init_args + [_u16] * 4,
    "kvDSR_SPR_Run": [_ptr, _ptr, _desc, _desc, _u16, _u16, _u16, _u16],
    "kvDSR_SPR_Close": [],
    "kvDSR_CameraLayout_Set": [_u32],
    "kvDSR_CameraLayout_Get": [ctypes.POINTER(_u32)],
    "kvDSR_VersionInfo_Get": [ctypes.c_char_p, _i32],
}


def _candidates():
    """Where the library may be, in the order tried: $KVDSR_LIBRARY; the path
    recorded at install, relative to this package; the loader's search."""
    env = os.environ.get("KVDSR_LIBRARY")
    if env:
        return [env]
    found = []
    try:
        from . import _installed
    except ImportError:
        pass
    else:
        here = os.path.dirname(os.path.abspath(__file__))
        found.append(os.path.normpath(os.path.join(here, _installed.LIBRARY)))
    name = ctypes.util.find_library("kvDSR")
    if name:
        found.append(name)
    found.append("libkvDSR.so.0")
    return found


def _load():
    errors = []
    for path in _candidates():
        try:
            lib = ctypes.CDLL(path)
        except OSError as e:
            errors.append("%s: %s" % (path, e))
            continue
        for name, args in _PROTOTYPES.items():
            f = getattr(lib, name)
            f.argtypes = args
            f.restype = _u32
        return lib, path
    raise OSError("libkvDSR not found (set KVDSR_LIBRARY to its path):\n  " + "\n  ".join(errors))


_state = {}


def lib():
    """The loaded library (loaded on first use)."""
    if "lib" not in _state:
        _state["lib"], _state["path"] = _load()
    return _state["lib"]


def library_path():
    """The path the library was loaded from."""
    lib()
    return _state["path"]
