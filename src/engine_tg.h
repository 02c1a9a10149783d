// TGSweep: the scalar network sweep. The tracking generator steps through
// the frequencies, the analyzer follows and measures one level per point,
// and the result is that level relative to a stored thru (at first the
// generator's nominal levels, -30 and -10 dBm).
//
// Two forms, by span:
// - Wide (above 101 kHz): free-running. Before a pass the generator gets
//   the whole sweep and its list of amplitude codes, the analyzer its gate;
//   during the pass the host only reads one 512-sample block per point. With
//   `tgHighRange` a second pass, with the generator 20 dB stronger and the
//   receiver more sensitive, is merged in below the first pass's floor: that
//   is what extends the measurable depth.
// - Narrow (up to 101 kHz): on request, point by point. The analyzer stays
//   tuned to the centre, the host sets the generator for each point and
//   takes one long capture, and delivers bin by bin.
//
// Thread: one (WideLoop or NarrowLoop). The thru and the request flags are
// taken up at the end of a sweep, by the measuring thread: the store needs
// a finished sweep. The thread publishes its result trace through the
// exchange (one trace for both min and max); its other arrays are its own.
#ifndef QOR_ENGINE_TG_H
#define QOR_ENGINE_TG_H

#include <atomic>
#include <cstdint>

#include "ipps.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;
class TGInterface;

// The distance of the sweep's points: of the series 10, 20, 50 Hz ... 20 MHz,
// the step whose point count lies nearest to `points`, no step wider than
// half the span (10 Hz always counts).
double TgBinSize(double span, int points);

class TGSweep : public SweepEngine {
public:
    static constexpr double kNarrowSpan = 101000.0;  // spans up to this run narrow

    TGSweep(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
            SpectrumCore* core, SweepInfo* sweepInfo);

    // Bit 0: store the thru; else bit 1: store the pad (the second pass's
    // reference with the preamplifier); else -4.
    qorStatus StoreTgThru(int flag) override;

private:
    void Rest() override;
    void WideLoop();
    void NarrowLoop();
    void PlanLevels();
    void LoadCorrections();
    void PlanGate();
    void SetupPass(int atten, int gain, int list);
    // One pass of the gated sweep into `trace`, less `thru` unless null.
    void RunPass(double* trace, const double* correction, const double* thru);
    double FindPeak(int i);
    void MergePasses();
    void StoreThru();
    void StorePad();
    void CrossFirst();
    void CrossSecond();
    void RemoveDc(double f);
    void Publish();

    DeviceCorr* corr;
    TGInterface& tg;
    bool narrow = false;
    bool thruStored = false;
    std::atomic<bool> storeThruRequest{false};
    std::atomic<bool> storePadRequest{false};
    int32_t sweepLength = 0;
    double start = 0.0;
    double binSize = 0.0;
    int32_t fftSize;
    int32_t sampleCount;
    int32_t gateStep = 0, gateFirst = 0;
    int32_t extraReads = 0;
    int32_t windowFirst = 0, windowLast = 0;
    int32_t directBins = 0;
    double firstRefLevel = -8.0, secondRefLevel = -28.0;
    double tgStart = 0.0;
    smart_array<Ipp64fc> samples, tone;
    smart_array<double> firstTrace, secondTrace;
    smart_array<int32_t> peakIndex;
    smart_array<double> spectrumMax, spectrumMin;
    smart_array<double> firstCorrection, secondCorrection;
    smart_array<double> crossFirst, crossSecond, sumA, sumB;
    smart_array<double> firstThru, secondThru;
};

}  // namespace qor

#endif
