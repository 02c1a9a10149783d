#include "engine_midrange.h"

#include <algorithm>
#include <cstring>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "rbw_filter.h"
#include "settings.h"
#include "spectrum_core.h"

namespace qor {
namespace {

constexpr int kBlock = AnalyzerLink::kBlockSamples;
// The view from the lower LO must lie this far under the other to count.
constexpr double kLowViewMarginDb = 2.0;
// A stream with nothing queued for this long (link clock) is silent.
constexpr uint32_t kSilentMs = 100;
// What one failed resynchronisation of the link reads at most.
constexpr int64_t kResyncScanBytes = 2560LL * AnalyzerLink::kBlockBytes;
// Pause of a reader whose stream is gone, so that it does not spin.
constexpr uint32_t kGonePauseMs = 100;

}  // namespace

MidrangePlan PlanMidrange(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                          bool reject, int32_t sampleCount) {
    MidrangePlan p;
    p.grid = PlanStepGrid(start, stop, span, fftSize, timebaseFactor, EdgeScale::Divided);
    p.blocksPerStep = (sampleCount + 256) / kBlock;
    p.steps = std::max(p.grid.stepCount, 1);
    p.stepCount = p.steps;
    p.firstStep = p.grid.stepStart;
    if (reject && p.stepCount >= kPartnerSteps) {
        // The frame simply begins 107 steps lower.
        p.partner = kPartnerSteps;
        p.stepCount += kPartnerSteps;
        p.firstStep -= kPartnerSteps;
    } else if (reject) {
        // Two separate halves: the partners 107 steps lower, then the span.
        p.shortSpan = true;
        p.partner = p.stepCount;
        p.stepCount *= 2;
        p.segmentStart = {p.firstStep - kPartnerSteps, p.firstStep};
        p.segmentLength = {p.partner, p.partner};
        return p;
    }
    constexpr int32_t kLimit = MidrangePlan::kSegmentLimit;
    const int32_t full = p.stepCount > kLimit ? (p.stepCount - kLimit - 1) / kLimit + 1 : 0;
    for (int32_t i = 0; i <= full; ++i) {
        p.segmentStart.push_back(p.firstStep + kLimit * i);
        p.segmentLength.push_back(i < full ? kLimit : p.stepCount - kLimit * full);
    }
    return p;
}

MidrangeFrameProcessor::MidrangeFrameProcessor(const MidrangePlan& plan, SpectrumCore* core, int32_t fftSize,
                                               bool reject)
    : plan(plan), core(core), fftSize(fftSize), reject(reject) {
    const int stepSamples = plan.StepSamples();
    const int length = std::max(plan.grid.sweepLength, 0);
    // The trace takes the middle binsPerStep bins of each spectrum (see SliceOfStep).
    core->KeepBins(fftSize / 2 - plan.grid.binsPerStep / 2, plan.grid.binsPerStep);
    BuildTone(mixTone, stepSamples, kMixFrequency);
    const auto allocate = [&](smart_array<Ipp64fc>& scratch, smart_array<double>& viewMin,
                              smart_array<double>& viewMax, smart_array<double>& specMin,
                              smart_array<double>& specMax) {
        scratch.Allocate(stepSamples);
        for (smart_array<double>* view : {&viewMin, &viewMax}) {
            view->Allocate(length);
            std::fill_n(view->get(), length, TraceExchange::kUnmeasured);
        }
        specMin.Allocate(fftSize);
        specMax.Allocate(fftSize);
    };
    allocate(scratchA, bufMinA, bufMaxA, specMinA, specMaxA);
    if (reject) allocate(scratchB, bufMinB, bufMaxB, specMinB, specMaxB);  // the partner's view
}

void MidrangeFrameProcessor::ProcessFrame(Ipp64fc* frame) {
    const int n = plan.StepSamples();
    for (int32_t i = 0; i < plan.steps; ++i) {
        const StepSlice slice = SliceOfStep(plan.grid, i, fftSize);
        if (slice.count <= 0) continue;  // this step reaches no trace bin
        Ipp64fc* step = frame + static_cast<int64_t>(i + plan.partner) * n;
        if (reject) {
            ippsMul_64fc(step, mixTone.get(), scratchA.get(), n);
            core->Process(scratchA.get(), specMinA.get(), specMaxA.get(), false);
            // The partner, 21.4 MHz lower, conjugated: the same RF on the same bins.
            ippsMul_64fc(frame + static_cast<int64_t>(i) * n, mixTone.get(), scratchB.get(), n);
            core->Process(scratchB.get(), specMinB.get(), specMaxB.get(), true);
            ippsCopy_64f(specMinB.get() + slice.from, bufMinB.get() + slice.to, slice.count);
            ippsCopy_64f(specMaxB.get() + slice.from, bufMaxB.get() + slice.to, slice.count);
        } else {
            ippsMul_64fc_I(mixTone.get(), step, n);
            core->Process(step, specMinA.get(), specMaxA.get(), false);
        }
        ippsCopy_64f(specMinA.get() + slice.from, bufMinA.get() + slice.to, slice.count);
        ippsCopy_64f(specMaxA.get() + slice.from, bufMaxA.get() + slice.to, slice.count);
    }
}

void MidrangeFrameProcessor::Publish(const StepCorrections& corrections, double* minTrace, double* maxTrace) {
    const int length = plan.grid.sweepLength;
    if (length <= 0) return;
    if (!reject) {
        ippsAdd_64f(corrections.High(), bufMinA.get(), minTrace, length);
        ippsAdd_64f(corrections.High(), bufMaxA.get(), maxTrace, length);
        return;
    }
    // Every bin of the views is measured again in each frame: correct them in place.
    ippsAdd_64f(corrections.High(), bufMinA.get(), bufMinA.get(), length);
    ippsAdd_64f(corrections.High(), bufMaxA.get(), bufMaxA.get(), length);
    ippsAdd_64f(corrections.Low(), bufMinB.get(), bufMinB.get(), length);
    ippsAdd_64f(corrections.Low(), bufMaxB.get(), bufMaxB.get(), length);
    ippsAddC_64f_I(kLowViewMarginDb, bufMinB.get(), length);
    ippsAddC_64f_I(kLowViewMarginDb, bufMaxB.get(), length);
    // What shows in one view only is an image: keep the lower reading.
    ippsMinEvery_64f(bufMinA.get(), bufMinB.get(), minTrace, length);
    ippsMinEvery_64f(bufMaxA.get(), bufMaxB.get(), maxTrace, length);
}

MidrangeSweepEngine::MidrangeSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link,
                                         CalibrationStore* calibration, SpectrumCore* core, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, core, sweepInfo),
      corr(calibration->corr.get()),
      plan(PlanMidrange(settings->start, settings->stop, settings->span, filter->fftSize, corr->timebaseFactor,
                        settings->reject, core->sampleCount)),
      corrections(corr, plan.grid, 0.0, settings->reject),
      processor(plan, core, filter->fftSize, settings->reject) {
    sweepInfo->sweepLength = plan.grid.sweepLength;
    sweepInfo->startFreq = plan.grid.startFreq;
    sweepInfo->binSize = plan.grid.binSize;
    sweepInfo->blocksPerStep = plan.blocksPerStep;

    // The hop program, kept by the unit.
    int64_t offset = 0;
    for (int32_t i = 0; i < plan.SegmentCount(); ++i) {
        link->LoadSweepSegment(i, plan.segmentStart[i], plan.segmentLength[i] - 1);
        segmentOffset.push_back(offset);
        offset += static_cast<int64_t>(plan.segmentLength[i]) * plan.StepSamples();
    }
    for (smart_array<Ipp64fc>& frame : frameBuffer) frame.Allocate(plan.FrameSamples());
    exchange.Configure(kFreeRunningSweeps, plan.grid.sweepLength, settings->logScale);

    corrections.ChooseLevel(link, *settings);
    link->Park();
    ConfigureStepPath(link, corr, *settings);
    // A frame is processed while the next is read: the overload goes with it.
    CarryOverloadWithResults();
    StartThread([this] { ReadFrames(); });
    StartThread([this] { ProcessFrames(); });
}

void MidrangeSweepEngine::Rest() {
    link->Park();
    // Whatever the unit still had on its way is of no use to the next mode.
    link->PurgeStream(FT_PURGE_RX);
    link->ReleaseSweepPath();
}

void MidrangeSweepEngine::ReadFrames() {
    link->RestoreSynthModulus();
    link->PurgeStream(FT_PURGE_RX | FT_PURGE_TX);
    const int32_t segments = plan.SegmentCount();
    link->StartFrames(segments, plan.blocksPerStep);

    // A stream that delivers without a header for two of its largest
    // segments (and some) has lost its frames for good.
    const int64_t largest = static_cast<int64_t>(*std::max_element(plan.segmentLength.begin(),
                                                                   plan.segmentLength.end())) *
                            plan.blocksPerStep * AnalyzerLink::kBlockBytes;
    const int failureLimit = static_cast<int>(2 + 2 * ((largest + kResyncScanBytes - 1) / kResyncScanBytes));

    int fill = 0;         // the buffer being filled
    int32_t segment = 0;  // the segment expected next
    bool torn = false;    // the frame in `fill` misses a segment
    int failures = 0;     // reads in a row that found no header
    while (running) {
        Ipp64fc* out = frameBuffer[fill].get() + segmentOffset[segment];
        const AnalyzerLink::FrameRead r =
            link->ReadFrame(out, plan.segmentLength[segment] * plan.StepSamples());
        if (!running) break;
        const bool known = r.tag >= 0 && r.tag < segments;
        if (r.kind == AnalyzerLink::FrameRead::Segment && known) {
            // After a lost header the segment that came may not be the one expected:
            // its data went to the wrong place, and the reader follows the unit.
            failures = 0;
            if (r.tag != segment) torn = true;
            segment = r.tag + 1;
        } else if (r.kind == AnalyzerLink::FrameRead::OtherSize) {
            // A frame of another size, dropped whole: the stream is in step.
            failures = 0;
            torn = true;
            if (!known) continue;
            segment = r.tag + 1;
        } else {
            // No header found, a block missing, or a header that names no segment.
            torn = true;
            if (StreamSilent() || ++failures > failureLimit) StreamGone();
            continue;
        }
        if (segment == segments) {
            // Bytes lost in the last segment show only in the header after
            // it: the frame counts once that header is in its place.
            const bool inStep = link->ReadHeaderAhead();
            const bool clipped = link->TakeClipped();
            if (!torn && inStep) OfferFrame(fill, clipped);
            torn = false;
            segment = 0;
            // The processor runs at the reader's priority: let it have the
            // processor now, else a stream that is always ready (a unit that
            // never has to be waited for) would keep it from ever running.
            std::this_thread::yield();
        }
    }
    frameEvent.Set();
    link->StopStream();
}

void MidrangeSweepEngine::OfferFrame(int& fill, bool clipped) {
    std::lock_guard<std::mutex> lock(bufferLock);
    // The processor still works on the other buffer: this frame is dropped.
    if (busyFrame == 1 - fill) return;
    readyFrame = fill;
    frameClipped[fill] = clipped;
    fill = 1 - fill;
    frameEvent.Set();
}

bool MidrangeSweepEngine::StreamSilent() {
    const uint32_t start = os::TickMs();
    while (link->StreamQueued() == 0) {
        if (os::TickMs() - start > kSilentMs) return true;
        os::SleepMs(1);
    }
    return false;
}

void MidrangeSweepEngine::StreamGone() {
    exchange.FailUsb();  // a waiting caller learns of it at once
    os::SleepMs(kGonePauseMs);
}

void MidrangeSweepEngine::ProcessFrames() {
    while (running) {
        frameEvent.Wait();
        if (!running) break;
        int frame;
        bool clipped;
        {
            std::lock_guard<std::mutex> lock(bufferLock);
            frame = readyFrame;
            readyFrame = -1;
            busyFrame = frame;
            clipped = frame >= 0 && frameClipped[frame];
        }
        if (frame < 0) continue;
        processor.ProcessFrame(frameBuffer[frame].get());
        {
            std::lock_guard<std::mutex> lock(bufferLock);
            busyFrame = -1;
        }
        exchange.WriteTraces(
            [this](double* minTrace, double* maxTrace) { processor.Publish(corrections, minTrace, maxTrace); });
        if (clipped) link->MarkCompression();
        exchange.Signal();
    }
}

}  // namespace qor
