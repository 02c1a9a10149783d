#include "iq_command.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "compression_warning.h"
#include "info_commands.h"
#include "progress_bar.h"
#include "session.h"
#include "si_units.h"
#include "sigmf_recording.h"

namespace qortool {
namespace {

// Above every decimation's limit: qorConfigIQ holds it to the widest.
constexpr double kWidestBandwidth = 1e9;

// The stream uses the centre alone; a narrow span keeps centres near the
// ends of the range valid.
constexpr double kSpan = 1e3;

struct Stream {
    int blockLength = 0;
    double bandwidth = 0.0;
    double sampleRate = 0.0;
};

Stream Start(int d, const IqOptions& o, double center, double bandwidth) {
    Check("qorConfigCenterSpan", qorConfigCenterSpan(d, center, kSpan));
    if (o.refLevel) Check("qorConfigLevel", qorConfigLevel(d, *o.refLevel));
    if (o.atten >= 0 || o.gain >= 0 || o.preamp) {
        Check("qorConfigGainAtten", qorConfigGainAtten(d, o.atten, o.gain, o.preamp));
    }
    Check("qorConfigIQ", qorConfigIQ(d, o.decimation, bandwidth));
    const qorStatus started = Check("qorInitiate", qorInitiate(d, ModeIQ));
    if (started != qorNoError) std::fprintf(stderr, "note: %s\n", qorGetErrorString(started));
    Stream s;
    Check("qorQueryStreamInfo", qorQueryStreamInfo(d, &s.blockLength, &s.bandwidth, &s.sampleRate));
    return s;
}

SigmfGlobal Global(int d, const IqOptions& o, IqFormat format, const Stream& s) {
    int type = 0, serial = 0;
    char firmware[16] = "";
    Check("qorGetDeviceType", qorGetDeviceType(d, &type));
    Check("qorGetSerialNumber", qorGetSerialNumber(d, &serial));
    Check("qorGetFirmwareString", qorGetFirmwareString(d, firmware));
    char hw[128];
    std::snprintf(hw, sizeof hw, "%s, serial %08d, firmware %s", DeviceTypeName(type), serial, firmware);
    const char* scale = format == IqFormat::Cs16
                            ? "int16 I, Q scaled so that 32767 is a magnitude of 1.0, clipped: full scale is 0 dBm, "
                              "and (I^2 + Q^2) / 32767^2 is the power in mW"
                            : "I^2 + Q^2 is the power in mW: a magnitude of 1.0 is 0 dBm";
    char description[320];
    std::snprintf(description, sizeof description, "Calibrated I/Q, %s. Bandwidth %s, decimation %d.", scale,
                  FormatHz(s.bandwidth, 6).c_str(), o.decimation);
    return {format, s.sampleRate, hw, std::string("qor ") + qorGetAPIVersion(), description};
}

// Takes one block: its samples, the stamp of the first, and whether samples
// were lost before it.
using BlockSink = std::function<void(const float* iq, std::size_t samples, std::int64_t stampMs, bool afterLoss)>;

struct Tally {
    long long recorded = 0;
    long long losses = 0;
};

// Reads `total` samples in blocks of the stream's length, reporting losses
// and an overloaded IF on stderr.
Tally ReadStream(int d, const Stream& stream, long long total, const BlockSink& sink) {
    std::vector<float> iq(2 * static_cast<std::size_t>(stream.blockLength));
    ProgressBar bar;
    Tally tally;
    CompressionWarning compression;
    while (tally.recorded < total) {
        const int count = static_cast<int>(std::min<long long>(stream.blockLength, total - tally.recorded));
        int loss = 0, sec = 0, milli = 0;
        const qorStatus status = Check("qorGetIQDataUnpacked",
                                       qorGetIQDataUnpacked(d, iq.data(), count, 0, nullptr, &loss, &sec, &milli));
        compression.Note(status, bar);
        // A loss before the first sample only moves the start of the recording.
        if (loss != 0 && tally.recorded > 0) {
            ++tally.losses;
            bar.Clear();
            std::fprintf(stderr, "qor: samples lost before sample %lld\n", tally.recorded);
        }
        sink(iq.data(), static_cast<std::size_t>(count), StampMilliseconds(sec, milli), loss != 0);
        tally.recorded += count;
        bar.Show(tally.recorded, total);
    }
    return tally;
}

}  // namespace

int RunIq(const IqOptions& o) {
    const double center = ParseFrequency(o.center, "--center");
    const double bandwidth = o.bandwidth.empty() ? kWidestBandwidth : ParseFrequency(o.bandwidth, "--bandwidth");
    if (o.format != "cf32" && o.format != "cs16") throw ToolError("--format: cf32 or cs16");
    const IqFormat format = o.format == "cs16" ? IqFormat::Cs16 : IqFormat::Cf32;

    OpenedUnit unit(o.serial);
    const int d = unit.device();
    const Stream stream = Start(d, o, center, bandwidth);
    const long long total = o.samples ? *o.samples : std::llround(*o.seconds * stream.sampleRate);
    if (total < 1) throw ToolError("--seconds: shorter than one sample");

    Tally tally;
    std::string where;
    if (o.out == "-") {
        SampleWriter raw(stdout, format);
        tally = ReadStream(d, stream, total, [&](const float* iq, std::size_t samples, std::int64_t, bool) {
            if (!raw.Write(iq, samples)) throw ToolError("--out -: cannot write to stdout");
        });
        if (std::fflush(stdout) != 0) throw ToolError("--out -: cannot write to stdout");
    } else {
        SigmfRecording recording(o.out, Global(d, o, format, stream), center);
        tally = ReadStream(d, stream, total, [&](const float* iq, std::size_t samples, std::int64_t stamp, bool loss) {
            recording.Append(iq, samples, stamp, loss);
        });
        recording.Finish();
        where = " in " + o.out + ".sigmf-data";
    }
    // Raw samples own stdout; the summary then goes with the other messages.
    std::fprintf(o.out == "-" ? stderr : stdout,
                 "recorded %lld samples at %.6g samples/s (%.3f s), center %s, bandwidth %s, %lld losses%s\n",
                 tally.recorded, stream.sampleRate, static_cast<double>(tally.recorded) / stream.sampleRate,
                 FormatHz(center, 9).c_str(), FormatHz(stream.bandwidth, 6).c_str(), tally.losses, where.c_str());
    return 0;
}

}  // namespace qortool
