// What the unit sends on its stream channel, in order: sync words, frame
// headers, sample blocks and bulk data, for the mode the last command chose.
// The program only sequences; the analyzer renders the blocks and paces them.
#ifndef QOR_SIM_STREAM_PROGRAM_H
#define QOR_SIM_STREAM_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "front_end.h"

namespace qorsim {

class StreamProgram {
public:
    enum class Mode { Silent, Stream, Capture, Hops, Gated, Frames, Bulk };
    enum class Next { Nothing, Bytes, Block };

    void Stop();
    void StartStream();
    void StartCapture(int blocks);
    void StartHops(int first, int last);
    // Blocks paced by a generator's points; TakeBlock gives the point's index.
    void StartGated(int blocks);
    void StartFrames(const std::vector<FirmwareState::Segment>& segments, int blocksPerStep);
    void StartBulk(std::vector<uint8_t> data);

    Mode CurrentMode() const { return mode_; }
    Next Peek() const;
    // Bytes of the next piece (sync word, header or bulk chunk), consumed.
    void TakeBytes(std::vector<uint8_t>& out);
    // Consumes the next block; `step` is its hop step (point index when gated), -1 for the current tuning.
    void TakeBlock(int* step);
    // LO of hop step `step` (hops and frames).
    double HopLo(int step) const { return (step + (halfStep_ ? 0.5 : 0.0)) * kHopStep; }
    // Bytes still to come, or max() for a mode without end.
    uint64_t RemainingBytes() const;

    // Faults on the framed programs: headers left out, frames of another size.
    int lostHeaders = 0;
    int wrongSizeFrames = 0;

private:
    void BeginSegment();

    Mode mode_ = Mode::Silent;
    std::vector<uint8_t> head_;      // bytes due before the next block
    uint64_t blocksLeft_ = 0;        // capture and hops
    int hopStep_ = 0;
    int hopDirection_ = 1;
    bool halfStep_ = false;          // hops: LOs half a step above the grid
    std::vector<FirmwareState::Segment> segments_;
    int blocksPerStep_ = 1;
    size_t segment_ = 0;
    int segmentSteps_ = 0;
    int stepInSegment_ = 0;
    int blockInStep_ = 0;
    std::vector<uint8_t> bulk_;
    size_t bulkOffset_ = 0;
};

}  // namespace qorsim

#endif
