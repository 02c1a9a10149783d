// How an engine hands its results to the caller: a minimum and a maximum
// trace in dBm (doubles), written by the engine's thread under traceLock and
// copied by the get calls under the same lock, narrowing to float for the
// 32-bit forms. Every engine holds one, through its base.
//
// The caller's thread and the engine's thread meet only here:
// - doneEvent (auto-reset): the engine sets it when something new stands;
//   a get call waits on it. A late caller finds it pending and gets the
//   latest trace at once; sweeps in between are lost, nothing queues up.
// - startEvent (auto-reset) and `idle`: an engine that sweeps on request
//   sleeps on startEvent while `idle` is 1; the first partial get call after
//   that clears `idle` and sets startEvent; the end of the sweep sets `idle`.
// - `progress` and `delivered`: an engine that delivers bin by bin moves
//   `progress` to the end of what it wrote, and the end of a sweep on
//   request moves it to the end of the trace. `delivered` is where the last
//   caller's copy ended. A caller asks for a new sweep only once it has had
//   all of the last one (so an end it has not seen yet is never lost), and
//   the request sets `progress` back to 0 (so that nothing of that sweep,
//   nor a signal it left pending, passes as new).
// - `usbError`: set for good by a failed read; every later get call returns
//   -11 "USB communications error".
// - Shut (the engine is being stopped): every waiter wakes at once and gets
//   -6, and no later call waits.
// traceLock guards the two traces and `progress`'s agreement with them; it
// is held only while the thread writes a piece of the traces or a caller
// copies them, and nothing takes a second lock inside it.
#ifndef QOR_RESULT_EXCHANGE_H
#define QOR_RESULT_EXCHANGE_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "os.h"
#include "qor_api.h"
#include "smart_array.h"

namespace qor {

// Where the engines differ in the exchange.
struct ExchangePolicy {
    // Free-running engines measure without pause; the others sweep once
    // for each request of a partial get call.
    bool onRequest;
    // The partial calls report each piece of the trace as it is written,
    // rather than whole sweeps.
    bool binByBin;
    // How long the 32-bit partial call waits for something new; with
    // nothing new it returns with `start` equal to 0.
    uint32_t narrowPartialWaitMs;
    // One array handed out as both the minimum and the maximum.
    bool oneTrace;
};

// Sweeps measured one after the other, handed out whole (slow, midrange).
inline constexpr ExchangePolicy kFreeRunningSweeps{false, false, os::kInfinite, false};
// A sweep on request, handed out as its steps are written (fast).
inline constexpr ExchangePolicy kRequestedBinByBin{true, true, 3000, false};
// A detector sweep on request, handed out whole, one trace for both (broadband).
inline constexpr ExchangePolicy kRequestedDetectorSweeps{true, false, os::kInfinite, true};

class TraceExchange {
public:
    static constexpr double kUnmeasured = -200.0;

    // Fixes the policy and sizes the traces (`length` bins, not measured
    // yet). `logScale` is the scale the get calls hand out, fixed with the mode.
    void Configure(const ExchangePolicy& policy, int32_t length, bool logScale);

    int32_t Length() const { return length_; }
    bool LogScale() const { return logScale_; }

    // ---- The caller's side (T is float or double) --------------------------
    // Waits for the next finished sweep and copies it; starts nothing.
    template <typename T>
    qorStatus Sweep(T* min, T* max);
    // Asks for a sweep when the engine rests, waits for something new and
    // copies the whole traces; [*start, *stop) is what is new.
    template <typename T>
    qorStatus Partial(T* min, T* max, int* start, int* stop);
    // Partial deliveries until the whole trace stands (nothing for a length
    // below 1); the traces are copied once, with the last one.
    template <typename T>
    qorStatus Collect(T* min, T* max);

    // ---- The engine's side ---------------------------------------------------
    // An engine on request sleeps here until asked; false once shut.
    bool AwaitRequest();
    // Runs `write(minTrace, maxTrace)` under traceLock (maxTrace is minTrace
    // with one trace); with `progressTo` at 0 or more, `progress` moves there
    // in the same hold.
    template <typename Write>
    void WriteTraces(Write write, int32_t progressTo = -1) {
        std::lock_guard<std::mutex> lock(traceLock);
        write(minTrace.get(), MaxTrace());
        if (progressTo >= 0) progress = progressTo;
    }
    // Something new stands.
    void Signal() { doneEvent.Set(); }
    // A caller that takes its results elsewhere (a stream's blocks) waits
    // here for the next Signal; false once shut.
    bool AwaitSignal();
    // The end of a sweep on request: the engine rests until asked again.
    void FinishSweep();
    // A read failed: marked for good, and a waiting caller learns of it at once.
    void FailUsb();
    bool UsbFailed() const { return usbError.load() != 0; }

    // Wakes every waiter and the engine's thread for good.
    void Shut();

private:
    // What a delivery copies: a whole sweep without asking for one (Sweep),
    // the traces on every delivery (Partial), or only on the one that
    // completes the trace (Collect: the copies before it would be overwritten).
    enum class Copy { WholeSweep, Always, OnceWhole };
    // `fresh`: the delivery brought bins the caller had not had.
    template <typename T>
    qorStatus Deliver(T* min, T* max, int* start, int* stop, bool* fresh, Copy copy);
    // A caller of a sweep on request asks for the next sweep when the engine
    // rests and the caller has had all of the last one.
    void RequestIfOwedNothing();
    double* MaxTrace() { return policy_.oneTrace ? minTrace.get() : maxTrace.get(); }

    ExchangePolicy policy_ = kFreeRunningSweeps;
    int32_t length_ = 0;
    bool logScale_ = true;
    os::AutoResetEvent doneEvent;
    os::AutoResetEvent startEvent;
    std::mutex traceLock;
    smart_array<double> minTrace, maxTrace;
    std::atomic<int> idle{1};
    std::atomic<int> delivered{0};
    std::atomic<int> progress{0};
    std::atomic<int> usbError{0};
    std::atomic<bool> shut{false};
};

}  // namespace qor

#endif
