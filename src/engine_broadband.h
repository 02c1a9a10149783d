// The widest and coarsest sweep (RBW above 300 kHz, start and span of at
// least 200 MHz): no samples and no FFT. The unit steps its LO by itself
// over a grid of 3 MHz and answers one 16-bit detector reading per point on
// the command channel; the detector sits at an IF of its own. Each frequency
// is read from an LO below and an LO above it; a signal that shows in one of
// the two readings only is an image, so the weaker reading is the one kept
// (the detector's code rises with power: the smaller code). The result is
// laid over a trace of 1 MHz bins.
//
// The two families differ, hence two thread bodies:
// - 12.4 GHz family: the LOs are `margin` grid points (3 x margin MHz, the
//   detector's IF) on either side. Each piece of the grid is read twice, with
//   the IF attenuator high and low, which put the detector into its sensitive
//   range and its other one; the unit's detector curves turn codes into
//   power, the sensitive range counting for weak signals, the other for
//   strong ones, with a blend in between. Each grid point is laid on the bin
//   of its own frequency and the bins between take a straight line in dB.
//   The detector's response is flat within 0.02 dB over 3 MHz, so a tone's
//   top spans two grid points: its middle is within a bin of the tone, its
//   highest bin up to 2 bins off.
// - 4.4 GHz family: the detector follows the 10.7 MHz IF; two grids 1 MHz
//   apart are read, codes are 0.134 dB each on top of the path's correction,
//   and the trace is smoothed over 9 bins.
//
// Both bodies read the unit's temperature when they start: the corrections
// and the detector's curves drift with it.
//
// Thread: one, on request, on the exchange's kRequestedDetectorSweeps policy
// (result_exchange.h): it sleeps until a partial get call asks for a sweep,
// writes the one trace after each piece and rests again at the end of the
// sweep. A reply short of readings leaves the readings of the last sweep in
// place (the unit's way); a read the driver refuses (an unplugged unit) is
// marked in the exchange, and every later get returns -11. Stop: the thread
// ends after the piece under way; the unit needs no rest.
#ifndef QOR_ENGINE_BROADBAND_H
#define QOR_ENGINE_BROADBAND_H

#include <cstdint>
#include <vector>

#include "os.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

// The grid of the 12.4 GHz family's detector sweep, cut into pieces of at
// most about 250 points, and the trace it is laid on.
struct BroadbandPlan {
    static constexpr int32_t kMaxPieces = 100;
    static constexpr int32_t kMaxPoints = 5000;

    int32_t startMHz = 0;
    int32_t stopMHz = 0;
    int32_t margin = 0;       // grid points between a frequency and its LO
    int32_t sweepLength = 0;  // 1 MHz bins from startMHz to stopMHz
    int32_t firstGrid = 0;    // LO of the first grid point, MHz
    int32_t points = 0;       // grid points of a sweep, LOs on both sides included
    int32_t chunkCount = 0;
    std::vector<int32_t> chunkStart;   // first grid LO of each piece, MHz
    std::vector<int32_t> chunkPoints;  // points of each piece

    // Frequency in MHz of levels entry c (the frequency between LO c and LO c + 2 x margin).
    int32_t LevelMHz(int32_t c) const { return firstGrid + 3 * margin + 3 * c; }
};

BroadbandPlan PlanBroadband(double start, double stop, int deviceType);

// Lays the `count` grid levels over the trace: levels[c] on the bin of its
// own frequency, firstBin + 3c, a straight line in dB between, and the first
// level held below its bin. (Laying levels[c] on bin 3c instead would show a
// tone up to 2 MHz low whenever the start is not a grid frequency.)
void SpreadLevels(const double* levels, int count, int firstBin, double* trace, int length);

// The two detector sweeps of the 4.4 GHz family: LOs from `first` to
// `last` MHz (exclusive) in 3 MHz steps, and the same 1 MHz higher.
struct VelmDetectorSweep {
    static constexpr int32_t kMaxPoints = 2048;
    int32_t first = 0;
    int32_t last = 0;
    int32_t points = 0;
};

VelmDetectorSweep PlanVelmDetectorSweep(double start, double stop);

// Trace bin i (startMHz + i, start in Hz) of the 4.4 GHz family from the
// levels of both grids (dBm at LOs first + 3k and first + 1 + 3k): at each
// side of the bin the stronger of two neighbouring LOs, then the weaker
// side, then the better of the two grids.
double VelmBinLevel(const double* gridA, const double* gridB, int points, int32_t first, double start, int i);

// The 9-bin triangular smoothing of the 4.4 GHz family; the first and last
// 9 bins keep their raw value.
void SmoothVelmTrace(const double* raw, double* trace, int length);

class BroadbandSweepEngine : public SweepEngine {
public:
    BroadbandSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                         SpectrumCore* core, SweepInfo* sweepInfo);

private:
    void Run();
    void PrepareLevel(bool velm);
    void RunOrsk();
    void RunVelm();
    void OrskLevels(int fresh);
    void EndSweep();

    DeviceCorr* corr;
    const BroadbandPlan plan;
    int32_t chunk = 0;
    // Thread-local counters of the sweep in progress (12.4 GHz family).
    int32_t fetched = 0;  // readings appended to the codes
    int32_t used = 0;     // readings whose both LOs were taken
    int32_t done = 0;     // levels written

    // One detector sweep as it arrives, big-endian: the high and low IF
    // attenuator settings (12.4 GHz family) or the two grids (4.4 GHz family).
    smart_array<uint8_t> tableHigh, tableLow;
    smart_array<uint16_t> codesHigh, codesLow;  // the sweep's readings so far (12.4 GHz family)
    smart_array<double> levels;                 // dB at the grid points; the first grid's dBm (4.4 GHz family)
    smart_array<double> levelsB, gridCorr, raw;  // 4.4 GHz family: second grid, corrections, unsmoothed trace
};

}  // namespace qor

#endif
