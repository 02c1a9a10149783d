// An I/Q recording in SigMF: NAME.sigmf-data with the samples and
// NAME.sigmf-meta with what they are, one capture segment per gap-free run.
#ifndef QOR_TOOL_SIGMF_RECORDING_H
#define QOR_TOOL_SIGMF_RECORDING_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "iq_format.h"

namespace qortool {

// Milliseconds since 1970 of a packet's stamp. `sec` carries the low 32 bits
// of the seconds; read unsigned, stamps stay in order past 2038.
std::int64_t StampMilliseconds(std::int32_t sec, std::int32_t milli);

// RFC 3339 in UTC with milliseconds: "2026-11-24T05:30:00.123Z".
std::string Rfc3339Utc(std::int64_t millisecondsSince1970);

// The global part of the metadata.
struct SigmfGlobal {
    IqFormat format = IqFormat::Cf32;
    double sampleRate = 0.0;    // samples per second
    std::string hw;             // the unit: type, serial, firmware
    std::string recorder;       // "qor <library version>"
    std::string description;
};

class SigmfRecording {
public:
    // Creates NAME.sigmf-data; `frequency` is the centre of every capture.
    SigmfRecording(const std::string& name, SigmfGlobal global, double frequency);

    // Appends samples whose first sample is stamped `stampMs`. The first
    // block, and every block after a loss, starts a new capture segment.
    void Append(const float* iq, std::size_t samples, std::int64_t stampMs, bool afterLoss);

    // Closes the data and writes NAME.sigmf-meta.
    void Finish();

private:
    struct Capture {
        std::int64_t sampleStart;
        std::int64_t stampMs;
    };

    std::string name_;
    SigmfGlobal global_;
    double frequency_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> data_;
    SampleWriter writer_;
    std::int64_t recorded_ = 0;
    std::vector<Capture> captures_;
};

}  // namespace qortool

#endif
