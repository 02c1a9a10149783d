"""The shared library through ctypes: where it is, the prototypes of the calls
the package uses, and statuses turned into exceptions and warnings."""
import ctypes
import os
import warnings

MODE_IDLE, MODE_SWEEP, MODE_REAL_TIME, MODE_IQ, MODE_AUDIO, MODE_TG_SWEEP = -1, 0, 1, 2, 3, 4

_SONAME = "libqor_api.so.3"


class QorError(Exception):
    """A call returned an error status; `status` is the code, the message its text."""

    def __init__(self, call, status, text):
        super().__init__(f"{call}: {text} ({status})")
        self.call, self.status, self.text = call, status, text


class QorWarning(UserWarning):
    """A call returned a warning status (a clamped value, no corrections, compression)."""

    def __init__(self, call, status, text):
        super().__init__(f"{call}: {text} ({status})")
        self.call, self.status, self.text = call, status, text


class IQPacket(ctypes.Structure):
    _fields_ = [("iqData", ctypes.POINTER(ctypes.c_float)), ("iqCount", ctypes.c_int32),
                ("purge", ctypes.c_int32), ("dataRemaining", ctypes.c_int32),
                ("sampleLoss", ctypes.c_int32), ("sec", ctypes.c_int32), ("milli", ctypes.c_int32)]


class SelfTestResults(ctypes.Structure):
    _fields_ = [("highBandPass", ctypes.c_bool), ("lowBandPass", ctypes.c_bool),
                ("attenuatorPass", ctypes.c_bool), ("lowIfPass", ctypes.c_bool),
                ("preampPass", ctypes.c_bool), ("highBandLevel", ctypes.c_double),
                ("lowBandLevel", ctypes.c_double), ("attenuatorDelta", ctypes.c_double),
                ("lowIfLevel", ctypes.c_double), ("preampLevel", ctypes.c_double)]


_int_p = ctypes.POINTER(ctypes.c_int)
_double_p = ctypes.POINTER(ctypes.c_double)
_float_p = ctypes.POINTER(ctypes.c_float)
_int, _double, _bool = ctypes.c_int, ctypes.c_double, ctypes.c_bool

# Every call that returns a status, with its argument types.
_PROTOTYPES = {
    "qorGetSerialNumberList": [_int_p, _int_p],
    "qorOpenDeviceBySerialNumber": [_int_p, _int],
    "qorCloseDevice": [_int],
    "qorPreset": [_int],
    "qorSetCalFilePath": [ctypes.c_char_p],
    "qorGetSerialNumber": [_int, _int_p],
    "qorGetFirmwareString": [_int, ctypes.c_char_p],
    "qorGetDeviceType": [_int, _int_p],
    "qorConfigAcquisition": [_int, _int, _int],
    "qorConfigCenterSpan": [_int, _double, _double],
    "qorConfigLevel": [_int, _double],
    "qorConfigGainAtten": [_int, _int, _int, _bool],
    "qorConfigSweepCoupling": [_int, _double, _double, _bool],
    "qorConfigRBWShape": [_int, _int],
    "qorConfigProcUnits": [_int, _int],
    "qorConfigIQ": [_int, _int, _double],
    "qorInitiate": [_int, _int],
    "qorAbort": [_int],
    "qorQuerySweepInfo": [_int, _int_p, _double_p, _double_p],
    "qorQueryStreamInfo": [_int, _int_p, _double_p, _double_p],
    "qorQueryTemperature": [_int, _float_p],
    "qorQueryDiagnostics": [_int, _float_p],
    "qorGetSweep_64f": [_int, _double_p, _double_p],
    "qorGetIQData": [_int, ctypes.POINTER(IQPacket)],
    "qorSetTimebase": [_int, _int],
    "qorSelfTest": [_int, ctypes.POINTER(SelfTestResults)],
}


def _candidates():
    named = os.environ.get("QOR_API_LIBRARY")
    if named:
        yield named
    try:
        from . import _installed  # written by the install rules
        yield os.path.join(os.path.dirname(__file__), _installed.LIBRARY)
    except ImportError:
        pass
    yield _SONAME


def _load():
    errors = []
    for path in _candidates():
        try:
            lib = ctypes.CDLL(path)
        except OSError as e:
            errors.append(str(e))
            continue
        for name, argtypes in _PROTOTYPES.items():
            fn = getattr(lib, name)
            fn.argtypes, fn.restype = argtypes, ctypes.c_int
        for name in ("qorGetAPIVersion", "qorGetProductID"):
            getattr(lib, name).restype = ctypes.c_char_p
        lib.qorGetErrorString.argtypes, lib.qorGetErrorString.restype = [ctypes.c_int], ctypes.c_char_p
        return lib
    raise OSError("qor_api not found (set QOR_API_LIBRARY): " + "; ".join(errors))


lib = _load()


def status_text(status):
    return lib.qorGetErrorString(status).decode()


def call(name, *args):
    """Calls `name`; an error raises QorError, a warning is issued as QorWarning.
    Returns the status (0 or a warning)."""
    status = getattr(lib, name)(*args)
    if status < 0:
        raise QorError(name, status, status_text(status))
    if status > 0:
        warnings.warn(QorWarning(name, status, status_text(status)), stacklevel=3)
    return status
