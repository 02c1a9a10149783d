#!/usr/bin/env python3
"""Streams through SoapySDR from the virtual instrument's unit 12000002, which
has a -30 dBm tone at 1 GHz: the tone must come out at its offset from the
tuned frequency and at its power (calibrated CF32: |x|^2 in mW), with time
stamps on every read and each loss told by exactly one overflow."""
import math
import sys
import time

import numpy as np
import SoapySDR
from SoapySDR import SOAPY_SDR_RX, SOAPY_SDR_CF32, SOAPY_SDR_CS16, SOAPY_SDR_OVERFLOW, SOAPY_SDR_HAS_TIME

TONE_HZ, TONE_DBM = 1.0e9, -30.0
OFFSET_HZ = -20.0e3  # where the tone sits in the stream


def main():
    found = SoapySDR.Device.enumerate("driver=qor,serial=12000002")
    assert len(found) == 1, found
    sdr = SoapySDR.Device(found[0])
    assert "mW" in sdr.getHardwareInfo()["sample_scale"]
    sdr.setSampleRate(SOAPY_SDR_RX, 0, 243e3)
    rate = sdr.getSampleRate(SOAPY_SDR_RX, 0)
    assert abs(rate - 486111.1111111111 / 2) < 1e-6, rate
    sdr.setFrequency(SOAPY_SDR_RX, 0, TONE_HZ - OFFSET_HZ)
    # The open unit is still listed, and only it with the filter.
    assert [d["serial"] for d in SoapySDR.Device.enumerate("driver=qor,serial=12000002")] == ["12000002"]

    stream = sdr.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32)
    mtu = sdr.getStreamMTU(stream)
    sdr.activateStream(stream)
    buf = np.zeros(mtu, np.complex64)
    state = {"blocks": [], "overflows": 0, "last": None}

    def read(times):
        for _ in range(times):
            r = sdr.readStream(stream, [buf], mtu, timeoutUs=1000000)
            if r.ret == SOAPY_SDR_OVERFLOW:
                # The samples after a loss come next, never a second overflow.
                assert state["last"] != SOAPY_SDR_OVERFLOW, "two overflows for one loss"
                state["overflows"] += 1
            else:
                assert r.ret == mtu, r
                assert r.flags & SOAPY_SDR_HAS_TIME
                state["blocks"].append(buf.copy())
            state["last"] = r.ret

    read(6)
    # The instrument paces nothing here: a reader that pauses falls behind.
    before = state["overflows"]
    time.sleep(0.5)
    read(12)
    assert state["overflows"] > before, "a pause lost nothing"
    blocks, overflows = state["blocks"], state["overflows"]
    sdr.deactivateStream(stream)
    sdr.closeStream(stream)

    # The first block holds the filter's start-up; the last is clean.
    x = blocks[-1]
    power_dbm = 10 * math.log10(np.mean(np.abs(x) ** 2))
    spectrum = np.abs(np.fft.fft(x * np.hanning(len(x)))) ** 2
    peak_hz = np.fft.fftfreq(len(x), 1 / rate)[np.argmax(spectrum)]
    bin_hz = rate / len(x)
    print(f"tone at {peak_hz:.1f} Hz ({OFFSET_HZ:.1f} expected, bin {bin_hz:.1f} Hz), "
          f"{power_dbm:.2f} dBm ({TONE_DBM} expected), {overflows} overflows")
    assert abs(peak_hz - OFFSET_HZ) <= bin_hz, peak_hz
    assert abs(power_dbm - TONE_DBM) < 0.5, power_dbm

    # A stream not yet activated gives a time-out, at once.
    stream = sdr.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CS16)
    counts = np.zeros(2 * mtu, np.int16)
    r = sdr.readStream(stream, [counts], mtu, timeoutUs=1000)
    assert r.ret == SoapySDR.SOAPY_SDR_TIMEOUT, r
    # CS16: 32767 is magnitude 1.0 (0 dBm).
    sdr.activateStream(stream)
    for _ in range(4):
        r = sdr.readStream(stream, [counts], mtu, timeoutUs=1000000)
    assert r.ret == mtu, r
    cs16_dbm = 10 * math.log10(np.mean((counts.astype(np.float64) / 32767) ** 2) * 2)
    assert abs(cs16_dbm - TONE_DBM) < 0.5, cs16_dbm
    sdr.deactivateStream(stream)
    sdr.closeStream(stream)
    return 0


if __name__ == "__main__":
    sys.exit(main())
