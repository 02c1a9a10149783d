#include "realtime_command.h"

#include <cstdio>
#include <filesystem>
#include <vector>

#include "compression_warning.h"
#include "info_commands.h"
#include "persistence_plot.h"
#include "progress_bar.h"
#include "session.h"
#include "si_units.h"
#include "trace_csv.h"

namespace qortool {
namespace {

struct Session {
    PersistenceFrame frame;
    double poi = 0.0;
};

Session Start(int d, const RealTimeOptions& o, double center, double span, double rbw) {
    Check("qorConfigCenterSpan", qorConfigCenterSpan(d, center, span));
    Check("qorConfigSweepCoupling", qorConfigSweepCoupling(d, rbw, rbw, false));
    Check("qorConfigAcquisition", qorConfigAcquisition(d, o.detector == "average" ? 1 : 0, 0));
    Check("qorConfigLevel", qorConfigLevel(d, o.refLevel));
    if (Check("qorConfigRealTime", qorConfigRealTime(d, o.frameScale, o.frameRate)) != qorNoError) {
        std::fprintf(stderr, "note: frame scale held to 10..200 dB, frame rate to 4..30 per second\n");
    }
    if (Check("qorConfigRealTimeOverlap", qorConfigRealTimeOverlap(d, o.overlap)) != qorNoError) {
        std::fprintf(stderr, "note: overlap held to 0.125..10\n");
    }
    if (Check("qorInitiate", qorInitiate(d, ModeRealTime)) == qorBandwidthClamped) {
        std::fprintf(stderr, "note: the RBW of this mode is 100 Hz to 10 kHz\n");
    }
    Session s;
    PersistenceFrame& f = s.frame;
    int length = 0;
    Check("qorQuerySweepInfo", qorQuerySweepInfo(d, &length, &f.startFreq, &f.binSize));
    Check("qorQueryRealTimeFrameInfo", qorQueryRealTimeFrameInfo(d, &f.width, &f.height));
    Check("qorQueryRealTimePoi", qorQueryRealTimePoi(d, &s.poi));
    if (length < 1) throw ToolError("the span holds no bin at this RBW: widen the span or narrow the RBW");
    f.sweep.assign(static_cast<std::size_t>(length), 0.0f);
    f.density.assign(static_cast<std::size_t>(f.width) * f.height, 0.0f);
    f.refLevel = o.refLevel;
    f.frameScale = std::min(std::max(o.frameScale, 10.0), 200.0);
    return s;
}

PlotText Text(int d, const RealTimeOptions& o, double center, double span, double rbw, double poi, int frame) {
    int type = 0, serial = 0;
    Check("qorGetDeviceType", qorGetDeviceType(d, &type));
    Check("qorGetSerialNumber", qorGetSerialNumber(d, &serial));
    char title[160], caption[400];
    std::snprintf(title, sizeof title, "%s %08d: persistence, frame %d", DeviceTypeName(type), serial, frame);
    std::snprintf(caption, sizeof caption,
                  "center %s   span %s   RBW %s   ref %.1f dBm   %.0f dB   %d frames/s   overlap %g   POI %.3g ms   %s",
                  FormatHz(center, 9).c_str(), FormatHz(span, 6).c_str(), FormatHz(rbw, 4).c_str(), o.refLevel,
                  o.frameScale, o.frameRate, o.overlap, poi * 1e3,
                  o.detector == "average" ? "average detector" : "peak detector");
    return {title, caption};
}

void WriteSweepCsv(const std::string& path, const PersistenceFrame& f) {
    Trace trace;
    trace.startFreq = f.startFreq;
    trace.binSize = f.binSize;
    trace.max.assign(f.sweep.begin(), f.sweep.end());
    trace.min = trace.max;
    if (!WriteTraceCsv(path, trace)) throw ToolError("cannot write " + path);
}

}  // namespace

int RunRealTime(const RealTimeOptions& o) {
    const double center = ParseFrequency(o.center, "--center");
    const double span = ParseFrequency(o.span, "--span");
    const double rbw = ParseFrequency(o.rbw, "--rbw");
    if (o.png.empty() && o.pngDir.empty()) throw ToolError("--png or --png-dir: where the image goes");
    if (!o.pngDir.empty()) {
        std::error_code failed;
        std::filesystem::create_directories(o.pngDir, failed);
        if (failed) throw ToolError("cannot make " + o.pngDir + ": " + failed.message());
    }

    OpenedUnit unit(o.serial);
    const int d = unit.device();
    Session s = Start(d, o, center, span, rbw);
    PersistenceFrame& f = s.frame;
    CompressionWarning compression;
    ProgressBar bar;
    for (int k = 1; k <= o.frames; ++k) {
        const qorStatus status = Check("qorGetRealTimeFrame", qorGetRealTimeFrame(d, f.sweep.data(), f.density.data(), nullptr));
        compression.Note(status, bar);
        if (!o.pngDir.empty()) {
            char name[32];
            std::snprintf(name, sizeof name, "frame-%04d.png", k);
            const std::string path = (std::filesystem::path(o.pngDir) / name).string();
            if (!WritePersistencePng(path, f, Text(d, o, center, span, rbw, s.poi, k))) throw ToolError("cannot write " + path);
        }
        bar.Show(k, o.frames);
    }
    bar.Clear();
    Check("qorAbort", qorAbort(d));
    if (!o.png.empty() && !WritePersistencePng(o.png, f, Text(d, o, center, span, rbw, s.poi, o.frames))) {
        throw ToolError("cannot write " + o.png);
    }
    if (!o.sweepCsv.empty()) WriteSweepCsv(o.sweepCsv, f);
    return 0;
}

}  // namespace qortool
