#include "result_exchange.h"

#include <algorithm>
#include <type_traits>

namespace qor {
namespace {

void CopyTrace(const double* trace, double* out, int length) {
    if (length > 0) ippsCopy_64f(trace, out, length);
}

void CopyTrace(const double* trace, float* out, int length) {
    if (length > 0) ippsConvert_64f32f(trace, out, length);
}

}  // namespace

void TraceExchange::Configure(const ExchangePolicy& policy, int32_t length, bool logScale) {
    policy_ = policy;
    length_ = length;
    logScale_ = logScale;
    delivered = length;  // nothing is owed to a caller yet
    const int room = std::max(length, 0);
    minTrace.Allocate(room);
    std::fill_n(minTrace.get(), room, kUnmeasured);
    if (!policy.oneTrace) {
        maxTrace.Allocate(room);
        std::fill_n(maxTrace.get(), room, kUnmeasured);
    }
}

template <typename T>
qorStatus TraceExchange::Sweep(T* min, T* max) {
    int start = 0, stop = 0;
    bool fresh = false;
    return Deliver(min, max, &start, &stop, &fresh, Copy::WholeSweep);
}

template <typename T>
qorStatus TraceExchange::Partial(T* min, T* max, int* start, int* stop) {
    bool fresh = false;
    return Deliver(min, max, start, stop, &fresh, Copy::Always);
}

template <typename T>
qorStatus TraceExchange::Collect(T* min, T* max) {
    if (length_ <= 0) return qorNoError;
    int start = 0, stop = 0;
    bool fresh = false;
    // A whole trace counts only when its end is news: the end of a sweep the
    // caller had already is not the next sweep.
    while (stop < length_ || !fresh) {
        const qorStatus status = Deliver(min, max, &start, &stop, &fresh, Copy::OnceWhole);
        if (status < 0) return status;
    }
    return qorNoError;
}

template <typename T>
qorStatus TraceExchange::Deliver(T* min, T* max, int* start, int* stop, bool* fresh, Copy copy) {
    constexpr bool narrow = std::is_same_v<T, float>;
    const bool partial = copy != Copy::WholeSweep;
    if (partial && policy_.onRequest) RequestIfOwedNothing();
    if (usbError) return qorUsbCommErr;
    doneEvent.Wait(partial && narrow ? policy_.narrowPartialWaitMs : os::kInfinite);
    if (shut) return qorNotConfiguredErr;  // the mode was left under the caller
    std::lock_guard<std::mutex> lock(traceLock);
    if (partial && policy_.onRequest) {
        const int newStop = progress.load();
        const int before = delivered.exchange(newStop);
        *fresh = before < newStop;
        // Whole sweeps are new from bin 0. With nothing new the wide form
        // reports its old position, the narrow form 0.
        int newStart = policy_.binByBin ? before : 0;
        if (narrow ? newStart >= newStop : newStart > newStop) newStart = 0;
        *start = newStart;
        *stop = newStop;
    } else {
        *start = 0;
        *stop = length_;
        *fresh = true;
    }
    if (copy != Copy::OnceWhole || (*stop >= length_ && *fresh)) {
        CopyTrace(minTrace.get(), min, length_);
        CopyTrace(MaxTrace(), max, length_);
    }
    return usbError ? qorUsbCommErr : qorNoError;
}

void TraceExchange::RequestIfOwedNothing() {
    // A caller still short of the last sweep's end gets that end first; only
    // then is a new sweep asked for.
    if (delivered.load() < length_) return;
    // Cleared before the start: a sweep that ran to its end in between
    // would otherwise find `idle` cleared again and never be asked for.
    if (!idle.exchange(0)) return;
    {
        // The new sweep has delivered nothing yet, and all of it is owed: a
        // signal the last one left pending must not pass its trace off as the
        // new one's.
        std::lock_guard<std::mutex> lock(traceLock);
        progress = 0;
        delivered = 0;
    }
    startEvent.Set();
}

bool TraceExchange::AwaitSignal() {
    doneEvent.Wait();
    return !shut;
}

bool TraceExchange::AwaitRequest() {
    startEvent.Wait();
    return !shut;
}

void TraceExchange::FinishSweep() {
    {
        std::lock_guard<std::mutex> lock(traceLock);
        progress = length_;
    }
    idle = 1;
    doneEvent.Set();
}

void TraceExchange::FailUsb() {
    usbError = 1;
    doneEvent.Set();
}

void TraceExchange::Shut() {
    shut = true;
    startEvent.Shut();
    doneEvent.Shut();
}

template qorStatus TraceExchange::Sweep(float*, float*);
template qorStatus TraceExchange::Sweep(double*, double*);
template qorStatus TraceExchange::Partial(float*, float*, int*, int*);
template qorStatus TraceExchange::Partial(double*, double*, int*, int*);
template qorStatus TraceExchange::Collect(float*, float*);
template qorStatus TraceExchange::Collect(double*, double*);

}  // namespace qor
