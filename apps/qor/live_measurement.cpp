#include "live_measurement.h"

#include <algorithm>

#include "qor_api.h"
#include "session.h"

namespace qortool {
namespace {

// A sweep slower than this shows its progress on the page.
constexpr auto kPartialEvery = std::chrono::milliseconds(200);

// How long a page waits for its settings to take; opening a unit takes the longest.
constexpr auto kChangeLimit = std::chrono::seconds(30);

void Note(nlohmann::json* refused, nlohmann::json* notes, const char* control, qorStatus status) {
    if (status < 0 && !refused->contains(control)) (*refused)[control] = qorGetErrorString(status);
    if (status > 0 && !notes->contains(control)) (*notes)[control] = qorGetErrorString(status);
}

}  // namespace

LiveMeasurement::LiveMeasurement(const ViewSettings& initial) : settings_(initial) {}

LiveMeasurement::~LiveMeasurement() { Stop(); }

void LiveMeasurement::Start() {
    {
        int serials[8];
        int count = 0;
        if (qorGetSerialNumberList(serials, &count) == qorNoError) units_.assign(serials, serials + count);
    }
    thread_ = std::thread([this] { Run(); });
    if (!Change(settings_)) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (refused_.contains("serial")) throw ToolError("cannot open the unit: " + refused_["serial"].get<std::string>());
    }
}

void LiveMeasurement::Stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

bool LiveMeasurement::Change(const ViewSettings& settings) {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t request = ++requested_;
    pending_ = settings;
    changed_.notify_all();
    changed_.wait_for(lock, kChangeLimit, [&] { return applied_ >= request || stopping_; });
    return applied_ == request && lastAccepted_;
}

ViewSettings LiveMeasurement::Settings() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return settings_;
}

nlohmann::json LiveMeasurement::State() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {{"settings", ToJson(settings_)},
            {"units", units_},
            {"refused", refused_},
            {"notes", notes_},
            {"error", error_},
            {"measuring", measuring_},
            {"generation", generation_},
            {"sequence", sequence_},
            {"frameScale", kFrameScaleDb},
            {"compression", qorGetErrorString(qorCompression)}};
}

std::shared_ptr<const LiveFrame> LiveMeasurement::Newer(std::uint32_t after, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return stopping_ || (latest_ && latest_->sequence != after); });
    if (latest_ && latest_->sequence != after) return latest_;
    return nullptr;
}

void LiveMeasurement::Run() {
    for (;;) {
        std::optional<ViewSettings> wanted;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            // Idle (nothing to measure) until the page asks for something else.
            changed_.wait(lock, [&] { return stopping_ || pending_ || measuring_; });
            if (stopping_) break;
            wanted.swap(pending_);
        }
        if (wanted) {
            Apply(*wanted);
        } else {
            Measure();
        }
    }
    CloseUnit();
}

void LiveMeasurement::Apply(const ViewSettings& wanted) {
    Texts refused = Texts::object(), notes = Texts::object();
    ViewSettings inForce = wanted;
    bool accepted = Configure(wanted, &refused, &notes);
    if (!accepted) {
        // Back to what measured before; its notes stand, the refusals are the new request's.
        Texts ignored = Texts::object();
        inForce = Settings();
        notes = Texts::object();
        if (device_ >= 0 || inForce.serial != wanted.serial) Configure(inForce, &ignored, &notes);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (accepted) {
        settings_ = wanted;
        settings_.serial = openSerial_;  // "the first unit" is this one from now on
    }
    refused_ = refused;
    notes_ = notes;
    lastAccepted_ = accepted;
    if (accepted || measuring_) error_.clear();
    ++generation_;
    latest_.reset();  // a page gets no more traces of the settings before
    applied_ = requested_;
    changed_.notify_all();
}

bool LiveMeasurement::OpenUnit(int serial, Texts* refused) {
    if (device_ >= 0 && (serial == 0 || serial == openSerial_)) return true;
    CloseUnit();
    const qorStatus status =
        serial == 0 ? qorOpenDevice(&device_) : qorOpenDeviceBySerialNumber(&device_, serial);
    if (status < 0) {
        device_ = -1;
        (*refused)["serial"] = qorGetErrorString(status);
        return false;
    }
    int opened = 0;
    qorGetSerialNumber(device_, &opened);
    const std::lock_guard<std::mutex> lock(mutex_);
    openSerial_ = opened;
    return true;
}

void LiveMeasurement::CloseUnit() {
    if (device_ < 0) return;
    qorCloseDevice(device_);
    device_ = -1;
    const std::lock_guard<std::mutex> lock(mutex_);
    openSerial_ = 0;
    measuring_ = false;
}

bool LiveMeasurement::Configure(const ViewSettings& s, Texts* refused, Texts* notes) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        measuring_ = false;
    }
    if (!OpenUnit(s.serial, refused)) return false;
    const int d = device_;
    qorAbort(d);
    Note(refused, notes, "frequency", qorConfigCenterSpan(d, s.center, s.span));
    Note(refused, notes, "rbw", qorConfigSweepCoupling(d, s.rbw, s.vbw, s.reject));
    Note(refused, notes, "detector", qorConfigAcquisition(d, s.average ? 1 : 0, 0));
    Note(refused, notes, "ref", qorConfigLevel(d, s.refLevel));
    if (s.realTime) Note(refused, notes, "mode", qorConfigRealTime(d, kFrameScaleDb, kFrameRate));
    if (!refused->empty()) return false;
    const qorStatus started = qorInitiate(d, s.realTime ? ModeRealTime : ModeSweep);
    Note(refused, notes, started == qorBandwidthClamped ? "rbw" : "mode", started);
    if (started < 0) return false;

    LiveFrame& f = work_;
    int length = 0;
    Note(refused, notes, "mode", qorQuerySweepInfo(d, &length, &f.startFreq, &f.binSize));
    f.frameWidth = f.frameHeight = 0;
    if (s.realTime) Note(refused, notes, "mode", qorQueryRealTimeFrameInfo(d, &f.frameWidth, &f.frameHeight));
    if (!refused->empty()) return false;
    f.realTime = s.realTime;
    f.min.assign(static_cast<std::size_t>(length), -200.0f);
    f.max.assign(static_cast<std::size_t>(length), -200.0f);
    f.image.assign(static_cast<std::size_t>(f.frameWidth) * static_cast<std::size_t>(f.frameHeight), 0.0f);
    f.filled = 0;
    f.status = 0;
    lastPublish_ = std::chrono::steady_clock::now();
    const std::lock_guard<std::mutex> lock(mutex_);
    measuring_ = length > 0;
    return true;
}

// One get call: a part of a sweep, or one real-time frame.
void LiveMeasurement::Measure() {
    LiveFrame& f = work_;
    if (f.realTime) {
        const qorStatus status = qorGetRealTimeFrame(device_, f.max.data(), f.image.data(), nullptr);
        if (status < 0) return Fail("qorGetRealTimeFrame", status);
        f.min = f.max;
        f.status = status;
        f.filled = static_cast<int>(f.max.size());
        return Publish();
    }
    int start = 0, stop = 0;
    const qorStatus status = qorGetPartialSweep_32f(device_, f.min.data(), f.max.data(), &start, &stop);
    if (status < 0) return Fail("qorGetPartialSweep_32f", status);
    f.status = std::max(f.status, static_cast<int>(status));
    f.filled = stop;
    if (stop >= static_cast<int>(f.max.size()) || std::chrono::steady_clock::now() - lastPublish_ > kPartialEvery) {
        Publish();
    }
    if (stop >= static_cast<int>(f.max.size())) f.status = 0;
}

void LiveMeasurement::Publish() {
    auto frame = std::make_shared<LiveFrame>(work_);
    lastPublish_ = std::chrono::steady_clock::now();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        frame->sequence = ++sequence_;
        frame->generation = generation_;
        latest_ = std::move(frame);
    }
    changed_.notify_all();
}

void LiveMeasurement::Fail(const char* call, int status) {
    const std::lock_guard<std::mutex> lock(mutex_);
    error_ = std::string(call) + ": " + qorGetErrorString(static_cast<qorStatus>(status));
    measuring_ = false;
}

}  // namespace qortool
