// The measurement behind the live view: one thread owns the unit, applies the
// settings the page asks for and publishes each trace as the newest frame.
//
// Threads: the measurement thread alone calls the library for the unit. The
// server's threads hand it settings (Change waits until they are applied) and
// take the newest frame (Newer); `mutex_` guards everything they share. A
// reader that falls behind skips frames, so no reader ever holds up the unit.
#ifndef QOR_TOOL_LIVE_MEASUREMENT_H
#define QOR_TOOL_LIVE_MEASUREMENT_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <vector>

#include "view_settings.h"

namespace qortool {

struct LiveFrame {
    std::uint32_t sequence = 0;
    std::uint32_t generation = 0;  // counts the settings the frame was measured with
    int status = 0;                // the warning of the get calls, e.g. compression
    bool realTime = false;
    int filled = 0;  // bins of this sweep measured so far; all of them once it is complete
    double startFreq = 0.0;
    double binSize = 0.0;
    std::vector<float> min, max;  // dBm
    int frameWidth = 0, frameHeight = 0;
    std::vector<float> image;  // persistence density, row-major, row 0 the lowest level
};

class LiveMeasurement {
public:
    explicit LiveMeasurement(const ViewSettings& initial);
    ~LiveMeasurement();
    LiveMeasurement(const LiveMeasurement&) = delete;
    LiveMeasurement& operator=(const LiveMeasurement&) = delete;

    // Opens the unit with the initial settings; the measurement thread runs until Stop.
    void Start();
    void Stop();

    // Has the thread apply `settings` and waits for it; false when one of them
    // was refused (the measurement then goes on with the settings before).
    bool Change(const ViewSettings& settings);

    // Settings, units, per-control refusals and notes, and the last error.
    nlohmann::json State() const;
    ViewSettings Settings() const;

    // The newest frame if it is newer than sequence `after`, waiting up to `timeout` for one.
    std::shared_ptr<const LiveFrame> Newer(std::uint32_t after, std::chrono::milliseconds timeout) const;

private:
    using Texts = nlohmann::json;  // control name -> status text

    void Run();
    void Apply(const ViewSettings& wanted);
    bool Configure(const ViewSettings& s, Texts* refused, Texts* notes);
    bool OpenUnit(int serial, Texts* refused);
    void CloseUnit();
    void Measure();
    void Publish();
    void Fail(const char* call, int status);

    // The measurement thread's own.
    int device_ = -1;
    int openSerial_ = 0;
    LiveFrame work_;
    std::chrono::steady_clock::time_point lastPublish_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    ViewSettings settings_;  // the settings in force
    std::optional<ViewSettings> pending_;
    std::uint64_t requested_ = 0, applied_ = 0;
    bool lastAccepted_ = true;
    bool measuring_ = false;
    bool stopping_ = false;
    std::vector<int> units_;
    Texts refused_ = Texts::object(), notes_ = Texts::object();
    std::string error_;
    std::uint32_t generation_ = 0, sequence_ = 0;
    std::shared_ptr<const LiveFrame> latest_;
    std::thread thread_;
};

}  // namespace qortool

#endif
