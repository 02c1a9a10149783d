"""A `Device`: one analyzer opened by serial, configured by keyword arguments,
measuring in whichever mode the last retrieval asked for."""
import ctypes
from collections import namedtuple

import numpy as np

from . import _library as L

IQData = namedtuple("IQData", "samples timestamp sample_loss data_remaining")
IQData.__doc__ = """complex64 samples (I^2 + Q^2 in mW), the wall-clock time of the
first sample in seconds since 1970, whether samples were lost before them,
and how many more are queued."""

Sweep = namedtuple("Sweep", "frequency min max")

# Keyword arguments by the call that takes them, in its argument order, with
# the library's defaults. A mode that lands adds its rows here.
_CONFIG = [
    ("qorConfigCenterSpan", (("center", 1.0e9), ("span", 10.0e6))),
    ("qorConfigLevel", (("ref_level", -20.0),)),
    ("qorConfigGainAtten", (("atten", -1), ("gain", -1), ("preamp", False))),
    ("qorConfigSweepCoupling", (("rbw", 3000.0), ("vbw", 3000.0), ("reject", False))),
    ("qorConfigAcquisition", (("detector", 0), ("scale", 0))),
    ("qorConfigRBWShape", (("rbw_shape", 1),)),
    ("qorConfigProcUnits", (("proc_units", 0),)),
    ("qorConfigIQ", (("decimation", 2), ("bandwidth", 250000.0))),
]
_KEYS = {key: call for call, fields in _CONFIG for key, _ in fields}


def serial_numbers():
    """The serial numbers of the free analyzers on the bus."""
    serials = (ctypes.c_int * 8)()
    count = ctypes.c_int()
    L.call("qorGetSerialNumberList", serials, ctypes.byref(count))
    return list(serials[:count.value])


def api_version():
    return L.lib.qorGetAPIVersion().decode()


class Device:
    """An open analyzer. Use as a context manager, or call close().

    Keyword arguments are settings (see configure); a change counts from the
    next measurement, which starts the mode again."""

    def __init__(self, serial=None, **settings):
        if serial is None:
            serials = serial_numbers()
            if not serials:
                raise L.QorError("qorOpenDevice", -8, L.status_text(-8))
            serial = serials[0]
        index = ctypes.c_int(-1)
        L.call("qorOpenDeviceBySerialNumber", ctypes.byref(index), int(serial))
        self.index = index.value
        self.serial = int(serial)
        self._mode = L.MODE_IDLE
        self._values = {key: value for _, fields in _CONFIG for key, value in fields}
        self.configure(**settings)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        # A device left open is closed when it goes; at interpreter exit the
        # library may already be gone.
        try:
            if getattr(self, "index", -1) >= 0:
                self.close()
        except Exception:
            pass

    def close(self):
        if self.index >= 0:
            index, self.index = self.index, -1
            L.call("qorCloseDevice", index)

    def configure(self, **settings):
        """Sets any of: center, span (Hz); ref_level (dBm); atten (0..3), gain
        (0..2), preamp (negative atten/gain: automatic); rbw, vbw (Hz), reject;
        detector, scale; rbw_shape; proc_units; decimation (1..128), bandwidth
        (Hz) of I/Q. Unknown names raise TypeError."""
        unknown = set(settings) - set(_KEYS)
        if unknown:
            raise TypeError("unknown settings: " + ", ".join(sorted(unknown)))
        self._values.update(settings)
        calls = {_KEYS[key] for key in settings}
        # The reference level returns the level to automatic: the gain comes after it.
        if "qorConfigLevel" in calls and self._values["atten"] >= 0:
            calls.add("qorConfigGainAtten")
        for name, fields in _CONFIG:
            if name in calls:
                L.call(name, self.index, *(self._values[key] for key, _ in fields))
        self._mode = L.MODE_IDLE if calls else self._mode

    def settings(self):
        return dict(self._values)

    def _enter(self, mode):
        if self._mode != mode:
            L.call("qorInitiate", self.index, mode)
            self._mode = mode

    def abort(self):
        L.call("qorAbort", self.index)
        self._mode = L.MODE_IDLE

    # ---- Sweeps -------------------------------------------------------------
    def sweep_min_max(self):
        """One sweep: frequency (Hz), min and max traces (dBm, or mV by scale)."""
        self._enter(L.MODE_SWEEP)
        length, start, step = ctypes.c_int(), ctypes.c_double(), ctypes.c_double()
        L.call("qorQuerySweepInfo", self.index, ctypes.byref(length), ctypes.byref(start), ctypes.byref(step))
        low = np.empty(length.value, np.float64)
        high = np.empty(length.value, np.float64)
        L.call("qorGetSweep_64f", self.index, _pointer(low, ctypes.c_double), _pointer(high, ctypes.c_double))
        frequency = start.value + step.value * np.arange(length.value)
        return Sweep(frequency, low, high)

    def sweep(self):
        """One sweep: frequency (Hz) and level (the max trace) arrays."""
        s = self.sweep_min_max()
        return s.frequency, s.max

    # ---- I/Q ----------------------------------------------------------------
    def iq(self, n, purge=False):
        """n complex64 samples of the I/Q stream, which starts at the first
        call; returns IQData with the first sample's stamp and the loss flag."""
        self._enter(L.MODE_IQ)
        samples = np.empty(int(n), np.complex64)
        packet = L.IQPacket(_pointer(samples, ctypes.c_float), int(n), int(bool(purge)), 0, 0, 0, 0)
        L.call("qorGetIQData", self.index, ctypes.byref(packet))
        stamp = (packet.sec & 0xFFFFFFFF) + packet.milli / 1000.0
        return IQData(samples, stamp, bool(packet.sampleLoss), packet.dataRemaining)

    def stream_info(self):
        """(samples per block, bandwidth Hz, samples per second) of the running I/Q stream."""
        self._enter(L.MODE_IQ)
        length, bandwidth, rate = ctypes.c_int(), ctypes.c_double(), ctypes.c_double()
        L.call("qorQueryStreamInfo", self.index, ctypes.byref(length), ctypes.byref(bandwidth), ctypes.byref(rate))
        return length.value, bandwidth.value, rate.value

    # ---- Information and diagnostics ----------------------------------------
    @property
    def device_type(self):
        value = ctypes.c_int()
        L.call("qorGetDeviceType", self.index, ctypes.byref(value))
        return value.value

    @property
    def firmware(self):
        text = ctypes.create_string_buffer(16)
        L.call("qorGetFirmwareString", self.index, text)
        return text.value.decode()

    def temperature(self):
        """The unit's temperature (C); while a mode runs, the value read when it started."""
        value = ctypes.c_float()
        L.call("qorQueryTemperature", self.index, ctypes.byref(value))
        return value.value

    def voltage(self):
        """The supply read-back (V); stops the running mode first."""
        self.abort()
        value = ctypes.c_float()
        L.call("qorQueryDiagnostics", self.index, ctypes.byref(value))
        return value.value

    def self_test(self):
        """Runs the self-test (which stops the mode); a dict of its results."""
        results = L.SelfTestResults()
        self._mode = L.MODE_IDLE
        L.call("qorSelfTest", self.index, ctypes.byref(results))
        return {name: getattr(results, name) for name, _ in results._fields_}


def _pointer(array, ctype):
    return array.ctypes.data_as(ctypes.POINTER(ctype))
