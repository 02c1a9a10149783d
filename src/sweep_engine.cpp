#include "sweep_engine.h"

#include "analyzer_link.h"
#include "os.h"

namespace qor {

SweepEngine::SweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                         SpectrumCore* core, SweepInfo* sweepInfo)
    : settings(settings), filter(filter), link(link), core(core), sweepInfo(sweepInfo), calibration(calibration) {}

SweepEngine::~SweepEngine() {
    if (stopped_) return;
    running = false;
    exchange.Shut();
    JoinThreads();
    if (link && !threads_.empty()) link->ReadWhile(nullptr);
    if (carriesOverload_) link->CountCompression(true);
}

void SweepEngine::StartThread(std::function<void()> body) {
    threads_.reserve(2);
    running = true;
    if (link && threads_.empty()) {
        // Whatever an earlier mode or a fault left on the stream (bytes of a
        // torn block) would put every block of this one out of step.
        link->PurgeStream(FT_PURGE_RX | FT_PURGE_TX);
        link->ReadWhile(&running);
    }
    threads_.push_back(os::StartThread(std::move(body), os::Priority::TimeCritical));
}

void SweepEngine::CarryOverloadWithResults() {
    carriesOverload_ = true;
    link->CountCompression(false);
    link->TakeClipped();  // what an earlier mode read is no news to this one
}

void SweepEngine::Stop() {
    if (stopped_.exchange(true)) return;
    running = false;
    exchange.Shut();
    WakeThreads();
    JoinThreads();
    if (link) link->ReadWhile(nullptr);
    if (carriesOverload_) link->CountCompression(true);
    Rest();
}

void SweepEngine::JoinThreads() {
    for (auto thread = threads_.rbegin(); thread != threads_.rend(); ++thread) {
        if (thread->joinable()) thread->join();
    }
}

}  // namespace qor
