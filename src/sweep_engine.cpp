#include "sweep_engine.h"

#include "analyzer_link.h"
#include "ipps.h"
#include "os.h"

namespace qor {

SweepEngine::SweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                         SpectrumCore* core, SweepInfo* sweepInfo)
    : settings(settings), filter(filter), link(link), core(core), sweepInfo(sweepInfo), calibration(calibration) {}

void SweepEngine::StartAcquisition(std::function<void()> body) {
    running = true;
    thread = os::StartThread(std::move(body), os::Priority::TimeCritical);
}

void SweepEngine::StopAcquisition() {
    running = false;
    if (thread.joinable()) thread.join();
}

qorStatus SweepEngine::CollectSweep64(double* min, double* max, int length) {
    return CollectByPartials(length, min, max,
                             [this](double* a, double* b, int* start, int* stop) {
                                 return GetPartialSweep64(a, b, start, stop);
                             });
}

qorStatus SweepEngine::CollectSweep32(float* min, float* max, int length) {
    return CollectByPartials(length, min, max, [this](float* a, float* b, int* start, int* stop) {
        return GetPartialSweep32(a, b, start, stop);
    });
}

qorStatus WholeSweepEngine::GetPartialSweep64(double* min, double* max, int* start, int* stop) {
    *start = 0;
    *stop = sweepInfo->sweepLength;
    return GetSweep64(min, max);
}

qorStatus WholeSweepEngine::GetPartialSweep32(float* min, float* max, int* start, int* stop) {
    *start = 0;
    *stop = sweepInfo->sweepLength;
    return GetSweep32(min, max);
}

void CopyTrace(const double* trace, double* out, int length) {
    if (length > 0) ippsCopy_64f(trace, out, length);
}

void CopyTrace(const double* trace, float* out, int length) {
    if (length > 0) ippsConvert_64f32f(trace, out, length);
}

void SetGainIndex(AnalyzerLink* link, int gain) {
    if (gain == 1) {
        link->SetGainRegisters(0, 0);
    } else if (gain == 2) {
        link->SetGainRegisters(0, 128);
    } else {
        link->SetGainRegisters(128, 0);
    }
}

}  // namespace qor
