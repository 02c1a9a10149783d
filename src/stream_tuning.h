// The tuning sequence of the streaming engines (I/Q, audio, real time): the
// LO planned for the centre on the high or the low IF, the first-LO path of
// the 12.4 GHz family, preamplifier, band filter, gain and attenuator.
#ifndef QOR_STREAM_TUNING_H
#define QOR_STREAM_TUNING_H

namespace qor {

class AnalyzerLink;
class DeviceCorr;
struct Settings;

struct StreamTuning {
    double residualHz;  // what the synthesizer leaves over: the engine mixes it away
    bool inverted;      // the band delivers the spectrum mirrored
};

// Plans the LO for `centerHz` on the high or the low IF (record A of the
// link's plan) without programming it; the residual it leaves, in Hz.
double PlanStream(AnalyzerLink* link, DeviceCorr* corr, double centerHz, bool highIf);

// Tunes to `centerHz` (on the scale divided by the timebase factor) with the
// level in `settings`.
StreamTuning TuneStream(AnalyzerLink* link, DeviceCorr* corr, const Settings& settings, double centerHz, bool highIf);

}  // namespace qor

#endif
