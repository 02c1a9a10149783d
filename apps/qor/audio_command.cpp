#include "audio_command.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <vector>

#include "audio_output.h"
#include "compression_warning.h"
#include "progress_bar.h"
#include "session.h"
#include "si_units.h"

namespace qortool {
namespace {

constexpr int kBlock = 4096;  // samples of one qorGetAudio
constexpr double kAudioRate = 30381.944444444445;

struct Mode {
    const char* name;
    int type;          // of qorConfigAudio
    double bandwidth;  // Hz, the channel when --bandwidth is not given
};

// Broadcast FM needs its 200 kHz; a sideband 3 kHz of speech on its side of
// the tuning; CW room for its 1040 Hz note.
constexpr Mode kModes[] = {
    {"am", 0, 10e3}, {"fm", 1, 200e3}, {"usb", 2, 6e3}, {"lsb", 3, 6e3}, {"cw", 4, 3e3},
};

// The audio filters: a low pass below half the audio rate (and below the
// channel's half width), a high pass that takes off the carrier's mean, and
// broadcast de-emphasis.
constexpr double kLowPassAtMost = 13e3;
constexpr double kHighPass = 100.0;
constexpr double kDeemphasisUs = 75.0;

// The stream uses the audio centre alone; a narrow span keeps centres near the
// ends of the range valid.
constexpr double kSpan = 1e3;

std::atomic<bool> interrupted{false};

const Mode& ModeNamed(const std::string& name) {
    for (const Mode& m : kModes) {
        if (name == m.name) return m;
    }
    throw ToolError("--mode: am, fm, usb, lsb or cw");
}

// The audio mode keeps the level that the last engine chose: a moment of
// I/Q at the centre chooses it for the reference level.
void ChooseLevel(int d, const AudioOptions& o, double center) {
    Check("qorConfigCenterSpan", qorConfigCenterSpan(d, center, kSpan));
    if (o.refLevel) Check("qorConfigLevel", qorConfigLevel(d, *o.refLevel));
    Check("qorInitiate", qorInitiate(d, ModeIQ));
    int length = 0;
    Check("qorQueryStreamInfo", qorQueryStreamInfo(d, &length, nullptr, nullptr));
    std::vector<float> iq(2 * static_cast<std::size_t>(length));
    Check("qorGetIQ_32f", qorGetIQ_32f(d, iq.data()));
    Check("qorAbort", qorAbort(d));
}

}  // namespace

int RunAudio(const AudioOptions& o) {
    const double center = ParseFrequency(o.center, "--center");
    const Mode& mode = ModeNamed(o.mode);
    const double bandwidth = o.bandwidth.empty() ? mode.bandwidth : ParseFrequency(o.bandwidth, "--bandwidth");
    if (bandwidth <= 0.0) throw ToolError("--bandwidth: above 0 Hz");
    const long long total = o.seconds ? std::llround(*o.seconds * kAudioRate) : -1;
    if (o.seconds && total < 1) throw ToolError("--seconds: shorter than one sample");

    OpenedUnit unit(o.serial);
    const int d = unit.device();
    ChooseLevel(d, o, center);
    const double lowPass = std::min(kLowPassAtMost, bandwidth / 2);
    Check("qorConfigAudio", qorConfigAudio(d, mode.type, center, bandwidth, lowPass, kHighPass, kDeemphasisUs));
    Check("qorInitiate", qorInitiate(d, ModeAudio));

    AudioOutput output = o.wav.empty() ? AudioOutput(stdout) : AudioOutput(o.wav);
    interrupted = false;
    std::signal(SIGINT, [](int) { interrupted = true; });
    std::vector<float> block(kBlock);
    ProgressBar bar;
    CompressionWarning compression;
    long long written = 0;
    while ((total < 0 || written < total) && !interrupted) {
        compression.Note(Check("qorGetAudio", qorGetAudio(d, block.data())), bar);
        const long long count = total < 0 ? kBlock : std::min<long long>(kBlock, total - written);
        if (!output.Write(block.data(), static_cast<std::size_t>(count))) throw ToolError("cannot write the audio");
        written += count;
        if (total > 0) bar.Show(written, total);
    }
    std::signal(SIGINT, SIG_DFL);
    if (!output.Finish()) throw ToolError("cannot write the audio");
    bar.Clear();
    // Raw samples own stdout; the summary then goes with the other messages.
    std::fprintf(o.wav.empty() ? stderr : stdout, "wrote %lld samples at %u samples/s (%.3f s), %s at %s, channel %s%s%s\n",
                 written, kAudioRateHz, static_cast<double>(written) / kAudioRate, mode.name, FormatHz(center, 9).c_str(),
                 FormatHz(bandwidth, 6).c_str(), o.wav.empty() ? "" : " in ", o.wav.c_str());
    return 0;
}

}  // namespace qortool
