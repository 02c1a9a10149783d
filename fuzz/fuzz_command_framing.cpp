// The command channel's byte stuffing, round trip: any payload the library
// frames comes out of the instrument's decoder as it went in, in one frame.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analyzer_link.h"
#include "fake_d2xx.h"
#include "frame_decoder.h"
#include "os.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool fastClock = (qor::os::SetClockScale(1e5), true);
    (void)fastClock;
    // The library frames commands of up to 5 payload bytes.
    if (size < 1 || size > 5) return 0;
    qor::test::FakeBus bus;
    bus.AddUnit("12345678");
    qor::AnalyzerLink link(qor::test::FakeBus::Table());
    if (!link.Open(0, 1)) return 0;
    bus.writes.clear();
    link.SendPayload(data, static_cast<int>(size));
    if (bus.writes.size() != 1) __builtin_trap();

    qorsim::FrameDecoder decoder;
    std::vector<uint8_t> frame;
    int frames = 0;
    for (uint8_t byte : bus.writes.front()) {
        if (decoder.Feed(byte, frame)) {
            ++frames;
            if (frame != std::vector<uint8_t>(data, data + size)) __builtin_trap();
        }
    }
    if (frames != 1 || bus.writes.front() != qorsim::EncodeFrame(frame)) __builtin_trap();
    link.Close();
    return 0;
}
