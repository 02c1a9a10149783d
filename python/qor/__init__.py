"""qor: the qor spectrum analyzers from Python, over the qor_api library.

    import qor
    with qor.Device(12000002, center=1e9, span=20e6, rbw=10e3) as dev:
        frequency, level = dev.sweep()
        dev.configure(center=1e9, decimation=4, bandwidth=100e3)
        block = dev.iq(16384)   # block.samples: complex64, |x|^2 in mW

Every error status raises QorError (with .status and .text); warnings
(positive statuses) are issued as QorWarning through the warnings module.
The library is found by QOR_API_LIBRARY, else next to the installed package,
else by its soname.
"""
from ._library import QorError, QorWarning, status_text, MODE_IDLE, MODE_SWEEP, MODE_REAL_TIME, MODE_IQ, \
    MODE_AUDIO, MODE_TG_SWEEP
from .device import Device, IQData, Sweep, api_version, serial_numbers

__all__ = ["Device", "IQData", "Sweep", "QorError", "QorWarning", "api_version", "serial_numbers", "status_text",
           "MODE_IDLE", "MODE_SWEEP", "MODE_REAL_TIME", "MODE_IQ", "MODE_AUDIO", "MODE_TG_SWEEP"]
