// Frame reads, resynchronisation and captures on a stream of arbitrary
// bytes: whatever the unit sends, every read ends, stays inside its buffer
// and answers one of the results it names.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analyzer_link.h"
#include "fake_d2xx.h"
#include "os.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The protocol's pauses and read limits pass in microseconds.
    static const bool fastClock = (qor::os::SetClockScale(1e5), true);
    (void)fastClock;
    if (size < 2) return 0;
    qor::test::FakeBus bus;
    bus.AddUnit("12345678");
    qor::AnalyzerLink link(qor::test::FakeBus::Table());
    if (!link.Open(0, 1)) return 0;
    std::deque<uint8_t>& stream = bus.StreamOf("12345678").rx;
    stream.assign(data + 1, data + size);

    const int blocks = 1 + data[0] % 4;
    const int expected = 512 * blocks;
    std::vector<Ipp64fc> out(static_cast<size_t>(expected) + 4096);
    for (int round = 0; round < 64 && !stream.empty(); ++round) {
        switch ((data[0] >> 2) % 4) {
            case 0:
            case 1: {
                const qor::AnalyzerLink::FrameRead r = link.ReadFrame(out.data(), expected);
                if (r.kind == qor::AnalyzerLink::FrameRead::Segment && (r.tag < 0 || r.tag > 255)) __builtin_trap();
                break;
            }
            case 2:
                link.ResyncFrames();
                break;
            default:
                link.CaptureBlock(out.data(), expected, 5);
                break;
        }
    }
    link.Close();
    return 0;
}
