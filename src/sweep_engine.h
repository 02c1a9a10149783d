// Base of every measurement engine of a device. An engine owns the threads
// that drive the analyzer while a mode runs, and hands its results to the
// caller through the operations below. The Device owns everything the engine
// points to and outlives it; the engine's destructor stops and joins its
// threads.
//
// The exchange with the caller: the engine keeps a minimum and a maximum
// trace in dBm (doubles), writes them under its trace lock and signals its
// done event; the get calls wait on that event and copy under the same lock,
// narrowing to float for the 32-bit forms. A failed USB read sets the
// engine's usbError mark for good: every later get call returns -11.
#ifndef QOR_SWEEP_ENGINE_H
#define QOR_SWEEP_ENGINE_H

#include <atomic>
#include <functional>
#include <thread>

#include "qor_api.h"

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
    virtual ~SweepEngine() = default;

    virtual qorStatus GetSweep64(double* min, double* max) = 0;
    virtual qorStatus GetSweep32(float* min, float* max) = 0;
    // The bins [*start, *stop) are new; the whole trace is written.
    virtual qorStatus GetPartialSweep64(double* min, double* max, int* start, int* stop) = 0;
    virtual qorStatus GetPartialSweep32(float* min, float* max, int* start, int* stop) = 0;
    virtual qorStatus StoreTgThru(int /*flag*/) { return qorNoError; }
    // What qorGetSweep does: partial deliveries into the same arrays until
    // `length` bins stand (nothing for a length below 1); a negative status
    // ends it at once. Only the last delivery's copy outlasts the call, so an
    // engine may leave out the copies before it.
    virtual qorStatus CollectSweep64(double* min, double* max, int length);
    virtual qorStatus CollectSweep32(float* min, float* max, int length);

protected:
    // Sets `running` and starts `body` as the acquisition thread at
    // time-critical priority.
    void StartAcquisition(std::function<void()> body);
    // Clears `running` and joins the acquisition thread if there is one;
    // safe to call again. Throws when called from that thread itself.
    void StopAcquisition();
    // Calls `partial(min, max, &start, &stop)` until `length` bins stand or
    // it returns a negative status.
    template <typename T, typename Partial>
    static qorStatus CollectByPartials(int length, T* min, T* max, Partial partial) {
        int start = 0, stop = 0;
        while (stop < length) {
            const qorStatus status = partial(min, max, &start, &stop);
            if (status < 0) return status;
        }
        return qorNoError;
    }

    Settings* settings = nullptr;  // engines write only attenUsed, gainUsed, attenUsedB, gainUsedB, preamp
    RbwFilter* filter = nullptr;
    AnalyzerLink* link = nullptr;
    SpectrumCore* core = nullptr;
    SweepInfo* sweepInfo = nullptr;
    CalibrationStore* calibration = nullptr;
    std::atomic<bool> running{false};  // every acquisition loop tests it at its head
    std::thread thread;
};

// Engines without partial delivery (free-running, whole sweeps): the partial
// forms report the whole trace as new and deliver it through GetSweep.
class WholeSweepEngine : public SweepEngine {
public:
    using SweepEngine::SweepEngine;
    qorStatus GetPartialSweep64(double* min, double* max, int* start, int* stop) override;
    qorStatus GetPartialSweep32(float* min, float* max, int* start, int* stop) override;
};

// Copies `length` trace values to the caller's array, narrowing for the
// 32-bit forms; nothing for a length below 1.
void CopyTrace(const double* trace, double* out, int length);
void CopyTrace(const double* trace, float* out, int length);

// Programs the gain stages for a gain index: 1 the middle setting, 2 the
// most gain, any other the least.
void SetGainIndex(AnalyzerLink* link, int gain);

}  // namespace qor

#endif
