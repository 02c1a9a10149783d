// Base of every measurement engine of a device. An engine owns the threads
// that drive the analyzer while a mode runs and hands its results to the
// caller through its TraceExchange (result_exchange.h). The Device owns
// everything the engine points to.
//
// Life cycle:
// 1. Built by Device::Initiate: the constructor plans, allocates every
//    buffer, programs what must precede the first sample, fills SweepInfo,
//    configures the exchange and starts its threads (StartThread), so that a
//    result can be asked for as soon as it returns.
// 2. Running: the threads are the only drivers of the link; the get calls
//    meet them only in the exchange.
// 3. Stopped by Device, through Stop, before the Device frees the filter
//    and the spectrum core: `running` is cleared, the exchange is shut (a
//    caller waiting in a get call wakes and returns -6), the engine's own
//    events are set (WakeThreads), the threads are joined here and nowhere
//    else, and the hardware is returned to rest (Rest). After Stop the
//    engine touches nothing it borrowed.
// 4. Destroyed when the last holder lets go: the Device, or a caller that
//    was still inside a get call when the mode was left. The destructor
//    frees the engine's own buffers only.
//
// Locks: the exchange's traceLock (see there) and whatever an engine keeps
// between its own threads; none is held while another is taken, and none is
// held across a wait.
#ifndef QOR_SWEEP_ENGINE_H
#define QOR_SWEEP_ENGINE_H

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "qor_api.h"
#include "result_exchange.h"

namespace qor {

struct Settings;
class RbwFilter;
class AnalyzerLink;
class CalibrationStore;
class SpectrumCore;

// What qorQuerySweepInfo reports, fixed by an engine's constructor.
struct SweepInfo {
    int32_t sweepLength = 0;
    double startFreq = 0.0;
    int32_t blocksPerStep = 0;
    double binSize = 0.0;
    // Written by the real-time engine.
    int32_t frameWidth = 0;
    int32_t frameHeight = 0;
    double poi = 0.0;
};

class SweepEngine {
public:
    SweepEngine() = default;
    // The borrowed parts, in the order every engine's constructor takes them.
    SweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                SpectrumCore* core, SweepInfo* sweepInfo);
    SweepEngine(const SweepEngine&) = delete;
    SweepEngine& operator=(const SweepEngine&) = delete;
    // Joins what a Stop that never came left running (an engine whose
    // constructor failed half-way); otherwise only frees.
    virtual ~SweepEngine();

    // Ends the mode: see the life cycle above. Safe to call again.
    void Stop();

    virtual qorStatus GetSweep64(double* min, double* max) { return exchange.Sweep(min, max); }
    virtual qorStatus GetSweep32(float* min, float* max) { return exchange.Sweep(min, max); }
    // The bins [*start, *stop) are new; the whole trace is written.
    virtual qorStatus GetPartialSweep64(double* min, double* max, int* start, int* stop) {
        return exchange.Partial(min, max, start, stop);
    }
    virtual qorStatus GetPartialSweep32(float* min, float* max, int* start, int* stop) {
        return exchange.Partial(min, max, start, stop);
    }
    virtual qorStatus StoreTgThru(int /*flag*/) { return qorNoError; }
    // The I/Q stream's retrieval; only the I/Q engine has one.
    virtual qorStatus GetIQ(IQPacket& /*packet*/) { return qorWrongModeErr; }
    // The real-time frames' retrieval; only the real-time engine has one.
    virtual qorStatus GetRealTimeFrame(float* /*sweep*/, float* /*frame*/, float* /*alphaFrame*/) {
        return qorNotConfiguredErr;
    }

    // What qorGetSweep does: partial deliveries until the trace stands.
    qorStatus CollectSweep64(double* min, double* max) { return exchange.Collect(min, max); }
    qorStatus CollectSweep32(float* min, float* max) { return exchange.Collect(min, max); }
    // The trace's bins and scale as the get calls hand them out.
    int32_t TraceLength() const { return exchange.Length(); }
    bool LogScale() const { return exchange.LogScale(); }

protected:
    // Sets `running` and starts `body` as an acquisition thread at
    // time-critical priority; Stop joins the threads in the reverse order.
    // Before the first, the stream channel is purged.
    void StartThread(std::function<void()> body);
    // For an engine that hands a result out later than it reads its samples
    // (a ring of blocks or frames between them): a read no longer marks an
    // overload at once, where a retrieval of an older result would take it;
    // the engine carries TakeClipped with each result and marks the link
    // as it hands that result out. Until Stop.
    void CarryOverloadWithResults();
    // Sets the engine's own events, so that none of its threads stays asleep.
    virtual void WakeThreads() {}
    // Returns the hardware to rest once the threads are joined.
    virtual void Rest() {}

    Settings* settings = nullptr;  // engines write only attenUsed, gainUsed, attenUsedB, gainUsedB, preamp
    RbwFilter* filter = nullptr;
    AnalyzerLink* link = nullptr;
    SpectrumCore* core = nullptr;
    SweepInfo* sweepInfo = nullptr;
    CalibrationStore* calibration = nullptr;
    std::atomic<bool> running{false};  // every acquisition loop tests it at its head
    TraceExchange exchange;

private:
    void JoinThreads();

    std::vector<std::thread> threads_;
    std::atomic<bool> stopped_{false};
    bool carriesOverload_ = false;
};

}  // namespace qor

#endif
