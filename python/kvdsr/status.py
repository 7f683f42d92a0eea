"""Status codes of the C interface and the exception that carries them."""

import enum


class Status(enum.IntEnum):
    """Every status the header names; the C name is "kvDSR_" + the member's."""

    OK = 0x00000
    ERR_BUFFER_TOO_SMALL = 0x74001
    ERR_NULL_POINTER = 0x74002
    ERR_STRIDE = 0x74003
    ERR_CAMERA_LAYOUT = 0x74004
    ERR_SIZE_COMBINATION = 0x74005
    ERR_SIDE_BY_SIDE_WIDTH = 0x74007
    ERR_NOT_INITIALISED = 0x74008
    ERR_DEPTH_FORMAT = 0x74009
    ERR_IMAGE_FORMAT = 0x7400A
    ERR_DISTANCE_RANGE = 0x7400B
    ERR_OUT_OF_MEMORY = 0x7400C
    ERR_CALIB_LENGTH = 0x6002
    ERR_CALIB_DECIPHER = 0x6004
    ERR_CALIB_REVISION = 0x6005
    ERR_CALIB_REF_WIDTH = 0x6006
    ERR_CALIB_CAMERA1 = 0x6007
    ERR_CALIB_CAMERA2 = 0x6008
    ERR_CALIB_NO_DATA = 0x600A
    ERR_CALIB_EXTRACT = 0x600B
    ERR_CALIB_KEY = 0x600C


def status_name(code):
    """The header's name of a status code (as kvDSR_StatusName gives it)."""
    try:
        return "kvDSR_" + Status(code).name
    except ValueError:
        return "unknown status"


class KvdsrError(Exception):
    """A kvDSR_* call returned a non-zero status.

    code: the status (int); name: its C name; function: the call."""

    def __init__(self, code, function):
        self.code = int(code)
        self.name = status_name(code)
        self.function = function
        super().__init__("%s: %s (0x%X)" % (function, self.name, self.code))


def check(code, function):
    """Raises KvdsrError for a non-zero status."""
    if code != Status.OK:
        raise KvdsrError(code, function)
