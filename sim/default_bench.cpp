// The bench used when QOR_SIM_BENCH names no file: one unit of each device
// type, each with a scene worth looking at, and a generator. It runs on the
// fast clock with immediate pacing, so that tests and the demo do not wait
// for the fixed pauses of the open sequence (see README.md).
#include "bench.h"

namespace qorsim {

const char* DefaultBenchJson() {
    return R"({
  "clock": "fast",
  "pacing": "immediate",
  "units": [
    {"serial": 11000001, "type": 1, "onDeviceCalibration": false, "temperature": 30.0, "noiseFloor": -160.0,
     "signals": [
       {"kind": "cw", "frequency": 100.0e6, "level": -30.0},
       {"kind": "am", "frequency": 1.0e6, "level": -40.0, "depth": 0.5, "tone": 1000.0},
       {"kind": "fm", "frequency": 98.1e6, "level": -50.0, "deviation": 75000.0, "tone": 1000.0}
     ]},
    {"serial": 12000002, "type": 2, "onDeviceCalibration": true, "temperature": 32.5, "noiseFloor": -162.0,
     "signals": [
       {"kind": "cw", "frequency": 1.0e9, "level": -30.0},
       {"kind": "cw", "frequency": 2.4e9, "level": -45.0},
       {"kind": "fm", "frequency": 433.92e6, "level": -55.0, "deviation": 25000.0, "tone": 1000.0},
       {"kind": "burst", "frequency": 868.3e6, "level": -40.0, "period": 0.02, "duration": 0.002},
       {"kind": "hop", "frequencies": [868.2e6, 868.25e6, 868.35e6, 868.4e6], "level": -50.0, "dwell": 0.005}
     ]},
    {"serial": 13000003, "type": 3, "onDeviceCalibration": false, "temperature": 35.0, "noiseFloor": -160.0,
     "signals": [
       {"kind": "cw", "frequency": 5.8e9, "level": -35.0},
       {"kind": "cw", "frequency": 10.0e9, "level": -40.0},
       {"kind": "am", "frequency": 125.0e6, "level": -45.0, "depth": 0.8, "tone": 400.0}
     ]},
    {"serial": 14000004, "type": 4, "onDeviceCalibration": true, "temperature": 40.0, "noiseFloor": -163.0,
     "signals": [
       {"kind": "cw", "frequency": 2.45e9, "level": -25.0},
       {"kind": "cw", "frequency": 8.4e9, "level": -40.0},
       {"kind": "cw", "frequency": 12.0e9, "level": -45.0},
       {"kind": "fm", "frequency": 145.5e6, "level": -60.0, "deviation": 3000.0, "tone": 1000.0}
     ]}
  ],
  "generators": [
    {"serial": 21000005, "family": 2, "cabledTo": 14000004, "dut": {"kind": "filter", "center": 2.0e9, "bandwidth": 2.0e8}}
  ]
})";
}

}  // namespace qorsim
