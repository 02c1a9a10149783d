// The virtual instrument's sense of time. Real time drives the sample
// pacing; the instrument clock (real time times the bench's scale) drives
// what the library's own sleeps are tied to: read time-outs, the port cycle's
// re-enumeration and the oven's warm-up.
#ifndef QOR_SIM_SIM_CLOCK_H
#define QOR_SIM_SIM_CLOCK_H

#include <chrono>

namespace qorsim {

using SteadyClock = std::chrono::steady_clock;
using TimePoint = SteadyClock::time_point;

inline double SecondsBetween(TimePoint from, TimePoint to) {
    return std::chrono::duration<double>(to - from).count();
}

inline TimePoint AfterSeconds(TimePoint from, double seconds) {
    return from + std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds));
}

// Real time that `instrumentMs` milliseconds of the instrument clock take.
inline double RealSecondsOf(double instrumentMs, double clockScale) {
    return instrumentMs * 1e-3 / clockScale;
}

}  // namespace qorsim

#endif
