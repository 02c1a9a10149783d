// The hopped sweep of narrow RBWs (spans from 201 kHz to 99 MHz, RBW 30 Hz
// to 250 kHz): the same step grid as the fast sweep (see step_sweep.h), but
// the unit stores the hop program and runs it by itself as a whole frame,
// again and again, with as many 512-sample blocks per step as the RBW needs.
// The program is loaded as segments of at most 250 steps; each segment
// arrives with a header that names it. With rejection the frame reaches 107
// steps further down, so that every step has its partner 21.4 MHz lower; a
// span of fewer than 107 steps gets two separate halves instead, the lower
// one holding the partners.
//
// Threads: two, free-running, on the exchange's kFreeRunningSweeps policy
// (result_exchange.h). The reader, started first, drives the link alone: it
// reads the frames segment by segment into one of two frame buffers. The
// processor turns a complete frame into the traces and signals; a late
// caller gets the latest trace at once. Stop joins the processor, then the
// reader (frameEvent wakes the processor; the reader leaves a frame between
// two blocks); Rest parks the unit and drops what it still streams.
//
// The double buffer. bufferLock guards readyFrame (a complete frame nobody
// took yet) and busyFrame (the frame the processor works on). The reader
// never waits for the processor, because the unit streams on whether read
// or not: when a frame is complete and the processor still works on the
// other buffer, the new frame is dropped and the reader fills the same
// buffer again. Otherwise the frame becomes ready (replacing an older ready
// one, which is dropped) and the reader goes on in the other buffer. So the
// two threads never touch the same frame, the processor always gets the
// newest complete frame, and a slow processor costs frames, not data. A
// frame goes with whether a block of it clipped, and the sweep made of it
// marks the overload as it is handed on.
//
// Faults: a garbled or lost header makes the link resynchronise; the frame
// under way is torn and not handed on, and the reader takes its place again
// from the next header it reads. Only a stream that is gone (silent, or
// without a header for longer than two of its largest segments) sets
// the exchange's error mark, which wakes a waiting caller and makes every
// get call return -11.
//
// Locks: bufferLock (the reader and the processor) and the exchange's
// traceLock (the processor and the caller) are never held together.
#ifndef QOR_ENGINE_MIDRANGE_H
#define QOR_ENGINE_MIDRANGE_H

#include <cstdint>
#include <mutex>
#include <vector>

#include "ipps.h"
#include "os.h"
#include "smart_array.h"
#include "step_sweep.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

// The frame of a midrange sweep: the step grid, the steps of the hop
// program with the rejection partners, and its segments.
struct MidrangePlan {
    static constexpr int32_t kSegmentLimit = 250;  // steps of one segment

    StepGrid grid;
    int32_t blocksPerStep = 0;
    int32_t stepCount = 0;  // steps of a frame, partners included
    int32_t firstStep = 0;  // LO index of the frame's first step
    bool shortSpan = false;  // rejection on fewer than 107 steps: two separate halves
    int32_t partner = 0;     // steps between a step and its partner; 0 without rejection
    int32_t steps = 0;       // steps that make the trace
    std::vector<int32_t> segmentStart;   // first LO index of each segment
    std::vector<int32_t> segmentLength;  // steps of each segment

    int32_t SegmentCount() const { return static_cast<int32_t>(segmentLength.size()); }
    int32_t StepSamples() const { return blocksPerStep * 512; }
    int32_t FrameSamples() const { return stepCount * StepSamples(); }
};

// `sampleCount`: the samples of the spectrum core's block after its skip.
MidrangePlan PlanMidrange(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                          bool reject, int32_t sampleCount);

// The processor's work on one frame: each step that reaches the trace is
// mixed to the middle of its spectrum and transformed (with rejection its
// partner as well, conjugated), its central bins laid into the frame's
// views; then the views are corrected and merged into the traces. It owns
// its buffers, allocated here; the loop allocates nothing.
class MidrangeFrameProcessor {
public:
    MidrangeFrameProcessor(const MidrangePlan& plan, SpectrumCore* core, int32_t fftSize, bool reject);

    // Lays the frame's steps into the views; the frame may be changed.
    void ProcessFrame(Ipp64fc* frame);
    // The corrected traces of the last frame: the high view alone, or with
    // rejection the lower of the two views (the low one with its margin).
    void Publish(const StepCorrections& corrections, double* minTrace, double* maxTrace);

private:
    const MidrangePlan& plan;
    SpectrumCore* core;
    const int32_t fftSize;
    const bool reject;
    smart_array<Ipp64fc> scratchA, scratchB;  // one step's samples in the rejection path
    smart_array<Ipp64fc> mixTone;
    smart_array<double> bufMinA, bufMaxA, bufMinB, bufMaxB;  // the frame's uncorrected views
    smart_array<double> specMinA, specMaxA, specMinB, specMaxB;
};

class MidrangeSweepEngine : public SweepEngine {
public:
    MidrangeSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                        SpectrumCore* core, SweepInfo* sweepInfo);

private:
    void WakeThreads() override { frameEvent.Set(); }
    void Rest() override;

    void ReadFrames();
    // Hands the frame in `fill` to the processor, or drops it; `fill` is
    // the buffer to fill next.
    void OfferFrame(int& fill, bool clipped);
    // True when nothing at all arrives on the stream for a while.
    bool StreamSilent();
    void StreamGone();
    void ProcessFrames();

    os::AutoResetEvent frameEvent;
    std::mutex bufferLock;  // readyFrame, busyFrame, frameClipped
    int readyFrame = -1;
    int busyFrame = -1;
    bool frameClipped[2] = {};  // the frame's samples came from a clipping converter

    DeviceCorr* corr;
    const MidrangePlan plan;
    StepCorrections corrections;
    std::vector<int64_t> segmentOffset;  // sample offset of each segment in a frame
    smart_array<Ipp64fc> frameBuffer[2];
    MidrangeFrameProcessor processor;  // the processor thread's alone
};

}  // namespace qor

#endif
