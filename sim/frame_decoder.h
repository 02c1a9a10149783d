// Undoes the byte stuffing of the command channel: 0xDB 0xDC is 0xC0, 0xDB 0xDD
// is 0xDB, and a lone 0xC0 ends a frame. Bytes arrive in any pieces.
#ifndef QOR_SIM_FRAME_DECODER_H
#define QOR_SIM_FRAME_DECODER_H

#include <cstdint>
#include <vector>

namespace qorsim {

class FrameDecoder {
public:
    // Feeds one wire byte; true when it ended a frame, which is then in `frame`.
    bool Feed(uint8_t byte, std::vector<uint8_t>& frame);
    void Reset();

private:
    std::vector<uint8_t> pending_;
    bool escape_ = false;
};

// The wire form of a payload, as the host sends it.
std::vector<uint8_t> EncodeFrame(const std::vector<uint8_t>& payload);

}  // namespace qorsim

#endif
