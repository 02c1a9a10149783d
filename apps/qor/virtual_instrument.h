// `--sim`: run the tool against the virtual instrument of the build.
#ifndef QOR_TOOL_VIRTUAL_INSTRUMENT_H
#define QOR_TOOL_VIRTUAL_INSTRUMENT_H

#include <string>
#include <vector>

namespace qortool {

// Names the virtual instrument of the build as the library's D2XX library
// (and `bench`, unless empty, as its bench file), and puts the units' factory
// calibration in a calibration folder of its own, so that units without
// calibration on board open with no download endpoint. Called before any
// other call into the library: that is when the library reads the names.
// Throws ToolError when the instrument's library cannot be found.
void UseVirtualInstrument(const std::string& bench);

struct InjectedSignal {
    std::string kind;
    double frequency;
    double level;
};

// The signals the virtual instrument injects at the input of unit `serial`,
// strongest first; empty when the D2XX library in use is not the instrument.
std::vector<InjectedSignal> InjectedSignals(int serial);

// The bench's tracking generator, when the D2XX library in use is the
// instrument and its bench has one: its serial, the analyzer it is cabled to
// and its device under test (the bench's "dut" object as JSON).
struct BenchGenerator {
    unsigned serial = 0;
    int cabledTo = 0;
    std::string dut;
};
bool FindBenchGenerator(BenchGenerator* generator);

// Puts `dut` (a "dut" object as JSON) between the bench's generator and its
// analyzer, as a person swaps cables; throws ToolError when it cannot.
void SwapDut(unsigned generator, const std::string& dut);

}  // namespace qortool

#endif
