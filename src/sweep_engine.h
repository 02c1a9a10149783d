// Base of every measurement engine of a device. An engine owns the threads
// that drive the analyzer while a mode runs, and hands its results to the
// caller through the operations below. The Device owns everything the engine
// points to and outlives it; the engine's destructor stops and joins its
// threads.
#ifndef QOR_SWEEP_ENGINE_H
#define QOR_SWEEP_ENGINE_H

#include "qor_api.h"

namespace qor {

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
    virtual ~SweepEngine() = default;
    virtual qorStatus GetSweep64(double* min, double* max) = 0;
    virtual qorStatus GetSweep32(float* min, float* max) = 0;
    // The bins [*start, *stop) are new; the whole trace is written.
    virtual qorStatus GetPartialSweep64(double* min, double* max, int* start, int* stop) = 0;
    virtual qorStatus GetPartialSweep32(float* min, float* max, int* start, int* stop) = 0;
    virtual qorStatus StoreTgThru(int /*flag*/) { return qorNoError; }
};

}  // namespace qor

#endif
