#include "stream_program.h"

#include <algorithm>
#include <cstdlib>

namespace qorsim {

namespace {
const std::vector<uint8_t> kSyncWord{0xA5, 0x5A, 0xF0, 0x0F};
constexpr size_t kBulkChunk = 4096;
}  // namespace

void StreamProgram::Stop() {
    mode_ = Mode::Silent;
    head_.clear();
    blocksLeft_ = 0;
    bulk_.clear();
    bulkOffset_ = 0;
    halfStep_ = false;
}

void StreamProgram::StartStream() {
    Stop();
    mode_ = Mode::Stream;
    head_ = kSyncWord;
}

void StreamProgram::StartCapture(int blocks) {
    Stop();
    mode_ = Mode::Capture;
    head_ = kSyncWord;
    blocksLeft_ = static_cast<uint64_t>(std::max(blocks, 0));
}

void StreamProgram::StartHops(int first, int last) {
    Stop();
    mode_ = Mode::Hops;
    // A window given high to low is the unit's low-band program: it runs
    // upward from `last` with every LO half a step above the grid, a view
    // that moves real signals and images apart.
    halfStep_ = first > last;
    hopStep_ = std::min(first, last);
    hopDirection_ = 1;
    blocksLeft_ = static_cast<uint64_t>(std::abs(last - first)) + 1;
}

void StreamProgram::StartGated(int blocks) {
    Stop();
    mode_ = Mode::Gated;
    hopStep_ = 0;
    hopDirection_ = 1;
    blocksLeft_ = static_cast<uint64_t>(std::max(blocks, 0));
}

void StreamProgram::StartFrames(const std::vector<FirmwareState::Segment>& segments, int blocksPerStep) {
    Stop();
    if (segments.empty() || blocksPerStep < 1) return;
    mode_ = Mode::Frames;
    segments_ = segments;
    blocksPerStep_ = blocksPerStep;
    segment_ = 0;
    BeginSegment();
}

void StreamProgram::StartBulk(std::vector<uint8_t> data) {
    Stop();
    mode_ = Mode::Bulk;
    bulk_ = std::move(data);
}

void StreamProgram::BeginSegment() {
    const auto& s = segments_[segment_];
    int stepsMinusOne = s.stepsMinusOne;
    if (wrongSizeFrames > 0) {
        --wrongSizeFrames;
        stepsMinusOne = stepsMinusOne > 0 ? stepsMinusOne - 1 : 1;
    }
    segmentSteps_ = stepsMinusOne + 1;
    stepInSegment_ = 0;
    blockInStep_ = 0;
    if (lostHeaders > 0) {
        --lostHeaders;
        head_.clear();
    } else {
        head_ = {0xE1, 0x1E, static_cast<uint8_t>(segment_), static_cast<uint8_t>(stepsMinusOne)};
    }
}

StreamProgram::Next StreamProgram::Peek() const {
    switch (mode_) {
        case Mode::Silent:
            return Next::Nothing;
        case Mode::Bulk:
            return bulkOffset_ < bulk_.size() ? Next::Bytes : Next::Nothing;
        case Mode::Stream:
        case Mode::Frames:
            return head_.empty() ? Next::Block : Next::Bytes;
        case Mode::Capture:
        case Mode::Hops:
        case Mode::Gated:
            if (!head_.empty()) return Next::Bytes;
            return blocksLeft_ > 0 ? Next::Block : Next::Nothing;
    }
    return Next::Nothing;
}

void StreamProgram::TakeBytes(std::vector<uint8_t>& out) {
    out.clear();
    if (mode_ == Mode::Bulk) {
        const size_t n = std::min(kBulkChunk, bulk_.size() - bulkOffset_);
        out.assign(bulk_.begin() + bulkOffset_, bulk_.begin() + bulkOffset_ + n);
        bulkOffset_ += n;
        if (bulkOffset_ >= bulk_.size()) Stop();
        return;
    }
    out.swap(head_);
    head_.clear();
}

void StreamProgram::TakeBlock(int* step) {
    *step = -1;
    switch (mode_) {
        case Mode::Stream:
            break;
        case Mode::Capture:
            if (--blocksLeft_ == 0) mode_ = Mode::Silent;
            break;
        case Mode::Hops:
        case Mode::Gated:
            *step = hopStep_;
            hopStep_ += hopDirection_;
            if (--blocksLeft_ == 0) mode_ = Mode::Silent;
            break;
        case Mode::Frames:
            *step = segments_[segment_].startStep + stepInSegment_;
            if (++blockInStep_ == blocksPerStep_) {
                blockInStep_ = 0;
                if (++stepInSegment_ == segmentSteps_) {
                    // The program runs again and again until the host stops it.
                    segment_ = (segment_ + 1) % segments_.size();
                    BeginSegment();
                }
            }
            break;
        default:
            break;
    }
}

uint64_t StreamProgram::RemainingBytes() const {
    switch (mode_) {
        case Mode::Silent:
            return 0;
        case Mode::Bulk:
            return bulk_.size() - bulkOffset_;
        case Mode::Capture:
        case Mode::Hops:
        case Mode::Gated:
            return head_.size() + blocksLeft_ * kBlockBytes;
        default:
            return std::numeric_limits<uint64_t>::max();
    }
}

}  // namespace qorsim
