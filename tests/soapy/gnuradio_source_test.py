#!/usr/bin/env python3
"""The README's GNU Radio source, as a user types it, on the virtual
instrument's unit 12000002 (a -30 dBm tone at 1 GHz): the flowgraph runs and
the tone comes out at -20 kHz and -30 dBm."""
import numpy as np
from gnuradio import blocks, gr, soapy

RATE = 486111.11 / 2  # as typed, not the exact rate: the module takes the nearest


class Capture(gr.top_block):
    def __init__(self):
        gr.top_block.__init__(self)
        src = soapy.source("driver=qor,serial=12000002", "fc32", 1, "", "", [""], [""])
        src.set_sample_rate(0, RATE)
        src.set_frequency(0, 1e9 + 20e3)
        src.set_gain_mode(0, True)
        self.sink = blocks.vector_sink_c()
        self.connect(src, blocks.head(gr.sizeof_gr_complex, 1 << 17), self.sink)


def main():
    flowgraph = Capture()
    flowgraph.run()
    x = np.array(flowgraph.sink.data()[-16384:])  # past the filters' start-up
    spectrum = np.abs(np.fft.fft(x * np.hanning(len(x)))) ** 2
    peak_hz = np.fft.fftfreq(len(x), 1 / RATE)[np.argmax(spectrum)]
    power_dbm = 10 * np.log10(np.mean(np.abs(x) ** 2))
    print(f"tone at {peak_hz:.1f} Hz, {power_dbm:.2f} dBm")
    # The unpaced instrument outruns a flowgraph on a busy machine ("O" on
    # stderr): a loss inside the block spreads the tone over a few bins.
    assert abs(peak_hz + 20e3) <= 4 * RATE / len(x), peak_hz
    assert abs(power_dbm + 30.0) < 0.5, power_dbm


if __name__ == "__main__":
    main()
