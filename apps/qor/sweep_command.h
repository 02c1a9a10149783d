// `qor sweep`: configure, sweep, and report the trace as a peak table, CSV and plot.
#ifndef QOR_TOOL_SWEEP_COMMAND_H
#define QOR_TOOL_SWEEP_COMMAND_H

#include <string>

namespace qortool {

struct SweepOptions {
    int serial = 0;
    std::string center, span, start, stop;  // SI text; center/span or start/stop
    std::string rbw = "10k";
    std::string vbw;  // empty: equal to rbw
    double refLevel = -20.0;
    int atten = -1;
    int gain = -1;
    bool preamp = false;
    bool reject = true;               // image rejection where the sweep takes it
    std::string detector = "minmax";  // minmax | average
    std::string scale = "dbm";        // dbm | mv
    int sweeps = 1;                   // 0: until interrupted
    std::string csv;
    std::string png;
    int peaks = 5;
    bool showInjected = false;        // print the instrument's signals beside the peaks
};

int RunSweep(const SweepOptions& options);

}  // namespace qortool

#endif
