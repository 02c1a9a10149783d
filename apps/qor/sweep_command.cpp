#include "sweep_command.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <vector>

#include "compression_warning.h"
#include "peak_table.h"
#include "peaks.h"
#include "plot.h"
#include "progress_bar.h"
#include "session.h"
#include "si_units.h"
#include "trace_csv.h"
#include "virtual_instrument.h"

namespace qortool {
namespace {

std::atomic<bool> interrupted{false};

// The span from either --center/--span or --start/--stop.
void FrequencyRange(const SweepOptions& o, double* center, double* span) {
    const bool byCenter = !o.center.empty() || !o.span.empty();
    const bool byEdges = !o.start.empty() || !o.stop.empty();
    if (byCenter && byEdges) throw ToolError("give either --center/--span or --start/--stop, not both");
    if (byEdges) {
        if (o.start.empty() || o.stop.empty()) throw ToolError("--start and --stop go together");
        const double start = ParseFrequency(o.start, "--start"), stop = ParseFrequency(o.stop, "--stop");
        *center = (start + stop) / 2.0;
        *span = stop - start;
        return;
    }
    *center = o.center.empty() ? 1e9 : ParseFrequency(o.center, "--center");
    *span = o.span.empty() ? 20e6 : ParseFrequency(o.span, "--span");
}

// The broadband detector sweep (RBW above 300 kHz, start and span of at least
// 200 MHz) reads each frequency from both sides itself and ignores the
// rejection flag.
bool DetectorSweep(double center, double span, double rbw) {
    return rbw > 3e5 && center - span / 2.0 >= 2e8 && span >= 2e8;
}

// One whole sweep through the partial calls, so that a long one shows progress.
void MeasureSweep(int device, Trace* trace, CompressionWarning& compression) {
    const int length = static_cast<int>(trace->max.size());
    std::vector<float> min(static_cast<std::size_t>(length)), max(static_cast<std::size_t>(length));
    ProgressBar bar;
    int start = 0, stop = 0;
    do {
        const qorStatus status = Check("qorGetPartialSweep_32f",
                                       qorGetPartialSweep_32f(device, min.data(), max.data(), &start, &stop));
        compression.Note(status, bar);
        bar.Show(stop, length);
    } while (stop < length && !interrupted);
    for (int i = 0; i < length; ++i) {
        trace->min[static_cast<std::size_t>(i)] = min[static_cast<std::size_t>(i)];
        trace->max[static_cast<std::size_t>(i)] = max[static_cast<std::size_t>(i)];
    }
}

// The maximum trace in dBm, whatever unit it was measured in.
std::vector<double> InDbm(const Trace& trace) {
    std::vector<double> dbm = trace.max;
    if (trace.millivolts) {
        for (double& v : dbm) v = v > 0.0 ? 20.0 * std::log10(v) - 46.9897 : -200.0;
    }
    return dbm;
}

const char* Images(const SweepOptions& o, double center, double span, double rbw) {
    if (DetectorSweep(center, span, rbw)) return "   images removed by the detector sweep";
    return o.reject ? "   image rejection" : "   no image rejection";
}

std::string Caption(const SweepOptions& o, double center, double span, double rbw, double vbw) {
    char text[400];
    std::snprintf(text, sizeof text, "center %s   span %s   RBW %s   VBW %s   ref %.1f dBm   atten %s   gain %s%s%s   %s",
                  FormatHz(center, 9).c_str(), FormatHz(span, 6).c_str(), FormatHz(rbw, 4).c_str(),
                  FormatHz(vbw, 4).c_str(), o.refLevel, o.atten < 0 ? "auto" : std::to_string(o.atten).c_str(),
                  o.gain < 0 ? "auto" : std::to_string(o.gain).c_str(), o.preamp ? "   preamp" : "",
                  Images(o, center, span, rbw), o.detector == "average" ? "average detector" : "min/max detector");
    return text;
}

void PrintPeaks(const std::vector<Peak>& peaks, const Trace& trace, int serial, bool showInjected) {
    std::fputs(PeakTable(peaks, trace.millivolts).c_str(), stdout);
    if (!showInjected) return;
    const double last = trace.startFreq + trace.binSize * static_cast<double>(trace.max.size());
    std::printf("\ninjected by the virtual instrument in this span:\n%-5s %-18s %12s\n", "kind", "frequency", "level (dBm)");
    for (const InjectedSignal& s : InjectedSignals(serial)) {
        if (s.frequency < trace.startFreq || s.frequency > last) continue;
        std::printf("%-5s %-18s %12.2f\n", s.kind.c_str(), FormatHz(s.frequency, 9).c_str(), s.level);
    }
}

}  // namespace

int RunSweep(const SweepOptions& o) {
    double center = 0, span = 0;
    FrequencyRange(o, &center, &span);
    const double rbw = ParseFrequency(o.rbw, "--rbw");
    const double vbw = o.vbw.empty() ? rbw : ParseFrequency(o.vbw, "--vbw");
    if (o.detector != "minmax" && o.detector != "average") throw ToolError("--detector: minmax or average");
    if (o.scale != "dbm" && o.scale != "mv") throw ToolError("--scale: dbm or mv");
    if (o.sweeps < 0) throw ToolError("--sweeps: 0 (until interrupted) or more");

    OpenedUnit unit(o.serial);
    const int d = unit.device();
    int serialNumber = 0;
    Check("qorGetSerialNumber", qorGetSerialNumber(d, &serialNumber));
    Check("qorConfigCenterSpan", qorConfigCenterSpan(d, center, span));
    Check("qorConfigSweepCoupling", qorConfigSweepCoupling(d, rbw, vbw, o.reject));
    Check("qorConfigAcquisition", qorConfigAcquisition(d, o.detector == "average" ? 1 : 0, o.scale == "mv" ? 1 : 0));
    Check("qorConfigLevel", qorConfigLevel(d, o.refLevel));
    if (o.atten >= 0 || o.gain >= 0 || o.preamp) Check("qorConfigGainAtten", qorConfigGainAtten(d, o.atten, o.gain, o.preamp));
    if (!o.reject && DetectorSweep(center, span, rbw)) {
        std::fprintf(stderr, "note: this sweep removes images by itself; --no-reject cannot show them\n");
    }
    if (Check("qorInitiate", qorInitiate(d, ModeSweep)) == qorBandwidthClamped) {
        std::fprintf(stderr, "note: %s\n", qorGetErrorString(qorBandwidthClamped));
    }

    Trace trace;
    int length = 0;
    Check("qorQuerySweepInfo", qorQuerySweepInfo(d, &length, &trace.startFreq, &trace.binSize));
    trace.min.assign(static_cast<std::size_t>(length), -200.0);
    trace.max.assign(static_cast<std::size_t>(length), -200.0);
    trace.millivolts = o.scale == "mv";

    interrupted = false;
    std::signal(SIGINT, [](int) { interrupted = true; });
    CompressionWarning compression;
    for (int n = 0; (o.sweeps == 0 || n < o.sweeps) && !interrupted; ++n) MeasureSweep(d, &trace, compression);
    std::signal(SIGINT, SIG_DFL);

    std::vector<Peak> peaks = StrongestPeaks(InDbm(trace), trace.startFreq, trace.binSize, o.peaks);
    for (Peak& p : peaks) p.level = trace.max[static_cast<std::size_t>(p.bin)];
    PrintPeaks(peaks, trace, serialNumber, o.showInjected);
    if (!o.csv.empty() && !WriteTraceCsv(o.csv, trace)) throw ToolError("--csv: cannot write " + o.csv);
    if (!o.png.empty()) {
        char title[64];
        std::snprintf(title, sizeof title, "qor sweep, unit %08d", serialNumber);
        if (!WriteTracePng(o.png, trace, peaks, {title, Caption(o, center, span, rbw, vbw)})) {
            throw ToolError("--png: cannot write " + o.png);
        }
    }
    return 0;
}

}  // namespace qortool
