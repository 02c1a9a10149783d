#!/usr/bin/env python3
"""Takes one sweep and plots it with matplotlib, or prints its strongest bins
when matplotlib is not installed.

    QOR_D2XX_LIBRARY=build/sim/libqor_sim.so PYTHONPATH=python \\
        QOR_API_LIBRARY=build/libqor_api.so python3 python/examples/plot_sweep.py --center 1e9 --span 20e6
"""
import argparse

import numpy as np

import qor


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--serial", type=int, help="the unit (default: the first free one)")
    parser.add_argument("--center", type=float, default=1e9, help="Hz")
    parser.add_argument("--span", type=float, default=20e6, help="Hz")
    parser.add_argument("--rbw", type=float, default=30e3, help="Hz")
    parser.add_argument("--output", help="write the plot to this file instead of showing it")
    args = parser.parse_args()

    with qor.Device(args.serial, center=args.center, span=args.span, rbw=args.rbw, vbw=args.rbw) as dev:
        frequency, level = dev.sweep()
        serial = dev.serial

    try:
        import matplotlib
        if args.output:
            matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("matplotlib is not installed (python3-matplotlib); the strongest bins:")
        for i in np.argsort(level)[::-1][:5]:
            print(f"  {frequency[i] / 1e6:12.6f} MHz  {level[i]:7.2f} dBm")
        return
    plt.plot(frequency / 1e6, level)
    plt.xlabel("frequency (MHz)")
    plt.ylabel("level (dBm)")
    plt.title(f"qor {serial}, RBW {args.rbw:g} Hz")
    plt.grid(True)
    if args.output:
        plt.savefig(args.output)
    else:
        plt.show()


if __name__ == "__main__":
    main()
