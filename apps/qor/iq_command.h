// `qor iq`: record calibrated I/Q as a SigMF recording, or stream it raw.
#ifndef QOR_TOOL_IQ_COMMAND_H
#define QOR_TOOL_IQ_COMMAND_H

#include <optional>
#include <string>

namespace qortool {

struct IqOptions {
    int serial = 0;
    std::string center;     // SI text
    int decimation = 2;
    std::string bandwidth;  // SI text; empty: the widest the decimation allows
    std::optional<double> seconds;   // the length: seconds or samples
    std::optional<long long> samples;
    std::string out;        // NAME of NAME.sigmf-data and NAME.sigmf-meta; "-": raw samples on stdout
    std::string format = "cf32";    // cf32 | cs16
    std::optional<double> refLevel;  // unset: the unit's preset
    int atten = -1;         // with gain; -1: the automatic level
    int gain = -1;
    bool preamp = false;
};

int RunIq(const IqOptions& options);

}  // namespace qortool

#endif
