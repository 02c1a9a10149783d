// `--sim`: run the tool against the virtual instrument of the build.
#ifndef QOR_TOOL_VIRTUAL_INSTRUMENT_H
#define QOR_TOOL_VIRTUAL_INSTRUMENT_H

#include <string>
#include <vector>

namespace qortool {

// When argv asks for --sim (and optionally --bench FILE) and the environment
// does not name the D2XX library yet, sets QOR_D2XX_LIBRARY (and QOR_SIM_BENCH)
// and runs the tool again, so that the library finds the instrument however
// early it loads its D2XX layer. Returns only when nothing is to be done;
// false with a message when the instrument's library cannot be found.
bool EnterVirtualInstrument(int argc, char** argv, std::string* error);

// With the virtual instrument in use, puts the units' factory calibration in
// a calibration folder of its own, so that units without calibration on
// board open with no download endpoint.
void ServeSimCalibration();

struct InjectedSignal {
    std::string kind;
    double frequency;
    double level;
};

// The signals the virtual instrument injects at the input of unit `serial`,
// strongest first; empty when the D2XX library in use is not the instrument.
std::vector<InjectedSignal> InjectedSignals(int serial);

}  // namespace qortool

#endif
