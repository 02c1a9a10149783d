#!/usr/bin/env python3
"""Streams through SoapySDR from the virtual instrument's unit 12000002, which
has a -30 dBm tone at 1 GHz: the tone comes out at its offset from the tuning
and at its power (CF32 in mW, CS16 with 32767 as 0 dBm), with time stamps on
every read and each loss told by exactly one overflow."""
import numpy as np
import SoapySDR
from SoapySDR import SOAPY_SDR_RX, SOAPY_SDR_CF32, SOAPY_SDR_CS16, SOAPY_SDR_OVERFLOW, SOAPY_SDR_HAS_TIME
import time

ARGS, TONE_HZ, TONE_DBM, OFFSET_HZ = "driver=qor,serial=12000002", 1.0e9, -30.0, -20.0e3


def power_dbm(x):
    return 10 * np.log10(np.mean(np.abs(x) ** 2))


def main():
    found = SoapySDR.Device.enumerate(ARGS)
    assert len(found) == 1, found
    sdr = SoapySDR.Device(found[0])
    assert "mW" in sdr.getHardwareInfo()["sample_scale"]
    sdr.setSampleRate(SOAPY_SDR_RX, 0, 243e3)
    rate = sdr.getSampleRate(SOAPY_SDR_RX, 0)
    assert abs(rate - 486111.1111111111 / 2) < 1e-6, rate
    sdr.setFrequency(SOAPY_SDR_RX, 0, TONE_HZ - OFFSET_HZ)
    # The open unit is still listed, and only it with the filter.
    assert [d["serial"] for d in SoapySDR.Device.enumerate(ARGS)] == ["12000002"]

    stream = sdr.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32)
    mtu = sdr.getStreamMTU(stream)
    sdr.activateStream(stream)
    buf, blocks, overflows, last = np.zeros(mtu, np.complex64), [], 0, None
    for reads in (6, 12):
        for _ in range(reads):
            r = sdr.readStream(stream, [buf], mtu, timeoutUs=1000000)
            if r.ret == SOAPY_SDR_OVERFLOW:
                # The samples after a loss come next, never a second overflow.
                assert last != SOAPY_SDR_OVERFLOW, "two overflows for one loss"
                overflows += 1
            else:
                assert r.ret == mtu and r.flags & SOAPY_SDR_HAS_TIME, r
                blocks.append(buf.copy())
            last = r.ret
        if reads == 6:
            # The instrument paces nothing here: a reader that pauses falls behind.
            before = overflows
            time.sleep(0.5)
    assert overflows > before, "a pause lost nothing"
    sdr.deactivateStream(stream)
    sdr.closeStream(stream)

    # The first block holds the filter's start-up; the last is clean.
    x = blocks[-1]
    peak_hz = np.fft.fftfreq(len(x), 1 / rate)[np.argmax(np.abs(np.fft.fft(x * np.hanning(len(x)))))]
    print(f"tone at {peak_hz:.1f} Hz, {power_dbm(x):.2f} dBm, {overflows} overflows")
    assert abs(peak_hz - OFFSET_HZ) <= rate / len(x), peak_hz
    assert abs(power_dbm(x) - TONE_DBM) < 0.5

    # A stream not yet activated gives a time-out, at once.
    stream = sdr.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CS16)
    counts = np.zeros(2 * mtu, np.int16)
    assert sdr.readStream(stream, [counts], mtu, timeoutUs=1000).ret == SoapySDR.SOAPY_SDR_TIMEOUT
    sdr.activateStream(stream)
    for _ in range(4):
        r = sdr.readStream(stream, [counts], mtu, timeoutUs=1000000)
    assert r.ret == mtu, r
    assert abs(power_dbm(counts.astype(np.float64) / 32767) + 10 * np.log10(2) - TONE_DBM) < 0.5
    sdr.deactivateStream(stream)
    sdr.closeStream(stream)


if __name__ == "__main__":
    main()
