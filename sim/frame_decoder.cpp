#include "frame_decoder.h"

namespace qorsim {

namespace {
constexpr uint8_t kEnd = 0xC0;
constexpr uint8_t kEscape = 0xDB;
constexpr uint8_t kEscapedEnd = 0xDC;
constexpr uint8_t kEscapedEscape = 0xDD;
}  // namespace

bool FrameDecoder::Feed(uint8_t byte, std::vector<uint8_t>& frame) {
    if (escape_) {
        escape_ = false;
        // An escape followed by anything else passes the byte on, as a lenient receiver does.
        pending_.push_back(byte == kEscapedEnd ? kEnd : byte == kEscapedEscape ? kEscape : byte);
        return false;
    }
    if (byte == kEscape) {
        escape_ = true;
        return false;
    }
    if (byte == kEnd) {
        frame.swap(pending_);
        pending_.clear();
        return true;
    }
    pending_.push_back(byte);
    return false;
}

void FrameDecoder::Reset() {
    pending_.clear();
    escape_ = false;
}

std::vector<uint8_t> EncodeFrame(const std::vector<uint8_t>& payload) {
    std::vector<uint8_t> wire;
    for (uint8_t b : payload) {
        if (b == kEnd) {
            wire.push_back(kEscape);
            wire.push_back(kEscapedEnd);
        } else if (b == kEscape) {
            wire.push_back(kEscape);
            wire.push_back(kEscapedEscape);
        } else {
            wire.push_back(b);
        }
    }
    wire.push_back(kEnd);
    return wire;
}

}  // namespace qorsim
