// Reads of the sample stream: captures, blocks, frames and finding the frames
// again after garbage.
#include <atomic>
#include <vector>

#include "link_fixture.h"

namespace qor::test {
namespace {

// `count` samples I = first + i, Q = -(first + i), as the unit sends them.
Bytes Samples(int count, int first) {
    Bytes bytes;
    for (int i = 0; i < count; ++i) {
        const auto re = static_cast<uint16_t>(first + i);
        const auto im = static_cast<uint16_t>(-(first + i));
        bytes.insert(bytes.end(), {uint8_t(re & 0xFF), uint8_t(re >> 8), uint8_t(im & 0xFF), uint8_t(im >> 8)});
    }
    return bytes;
}

Bytes Frame(uint8_t tag, uint8_t stepsMinusOne, int first, int blocksPerStep = 1) {
    Bytes bytes = {0xE1, 0x1E, tag, stepsMinusOne};
    const Bytes samples = Samples(512 * (stepsMinusOne + 1) * blocksPerStep, first);
    bytes.insert(bytes.end(), samples.begin(), samples.end());
    return bytes;
}

// Bytes with no header at any offset.
Bytes Garbage(size_t count) { return Bytes(count, 0x11); }

void Push(std::deque<uint8_t>& queue, const Bytes& bytes) { queue.insert(queue.end(), bytes.begin(), bytes.end()); }

void ExpectSample(const Ipp64fc& sample, int value) {
    EXPECT_DOUBLE_EQ(value / 32768.0, sample.re);
    EXPECT_DOUBLE_EQ(-value / 32768.0, sample.im);
}

using Read = AnalyzerLink::FrameRead;

void ExpectFrame(const Read& read, Read::Kind kind, int tag) {
    EXPECT_EQ(kind, read.kind);
    EXPECT_EQ(tag, read.tag);
}

class StreamTest : public LinkTest {
protected:
    std::vector<Ipp64fc> out = std::vector<Ipp64fc>(8192);
};

TEST_F(StreamTest, FramesInStepAreReadWhole) {
    link.StartFrames(1, 1);
    Push(Stream(), Frame(5, 1, 100));
    Push(Stream(), Frame(6, 0, -32768));
    ExpectFrame(link.ReadFrame(out.data(), 1024), Read::Segment, 5);
    ExpectSample(out[0], 100);
    ExpectSample(out[1023], 1123);
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 6);
    EXPECT_DOUBLE_EQ(-1.0, out[0].re);
    EXPECT_TRUE(Stream().empty());
}

// The header after a frame proves that the frame came whole: with bytes of
// it lost the header is out of its place, and the next read finds its place
// again (skipping the frame it finds its header in). A header read ahead is
// the one the next read starts from.
TEST_F(StreamTest, TheHeaderAfterAFrameShowsBytesLostInIt) {
    link.StartFrames(1, 1);
    Push(Stream(), Frame(1, 0, 0));
    Push(Stream(), Frame(2, 0, 300));
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 1);
    EXPECT_TRUE(link.ReadHeaderAhead());
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 2);
    ExpectSample(out[0], 300);

    Bytes cut = Frame(3, 0, 0);
    cut.erase(cut.begin() + 1000, cut.begin() + 1002);
    Push(Stream(), cut);
    for (uint8_t tag : {4, 5, 6}) Push(Stream(), Frame(tag, 0, 100 * tag));
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 3);
    EXPECT_FALSE(link.ReadHeaderAhead());
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 6);
    ExpectSample(out[0], 600);
    EXPECT_TRUE(Stream().empty());
}

TEST_F(StreamTest, AFrameLeftOnStopEndsTorn) {
    link.StartFrames(1, 1);
    Push(Stream(), Frame(5, 1, 100));
    std::atomic<bool> keepReading{false};
    link.ReadWhile(&keepReading);
    EXPECT_EQ(Read::Torn, link.ReadFrame(out.data(), 1024).kind);
    link.ReadWhile(nullptr);
    EXPECT_EQ(1024u * 4, Stream().size()) << "no block of it was read";
}

TEST_F(StreamTest, AFrameOfAnotherSizeIsDroppedWhole) {
    link.StartFrames(1, 2);
    Push(Stream(), Frame(2, 1, 0, 2));  // 2 steps of 2 blocks
    Push(Stream(), Frame(3, 1, 50, 2));
    Push(Stream(), Frame(4, 1, 70, 2));
    ExpectFrame(link.ReadFrame(out.data(), 512), Read::OtherSize, 2);
    ExpectFrame(link.ReadFrame(out.data(), 8192), Read::OtherSize, 3);
    ExpectFrame(link.ReadFrame(out.data(), 2048), Read::Segment, 4);  // the next header is in step
    ExpectSample(out[0], 70);
}

TEST_F(StreamTest, GarbageBeforeAHeaderIsSkippedWithThatFrame) {
    struct Case {
        const char* name;
        size_t garbage;  // before the first header, counting the 4 bytes ReadFrame takes first
    };
    // Headers land at offsets 948, 2044 and 2046 of a resync read; the last
    // has its count byte beyond the read.
    const Case cases[] = {{"mid-read", 4 + 2048 + 948}, {"at 2044", 4 + 2044}, {"at 2046", 4 + 2046}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Stream().clear();
        link.StartFrames(1, 1);
        Push(Stream(), Garbage(c.garbage));
        Push(Stream(), Frame(1, 1, 0));
        Push(Stream(), Frame(2, 0, 300));
        ExpectFrame(link.ReadFrame(out.data(), 512), Read::Segment, 2);
        ExpectSample(out[0], 300);
        EXPECT_TRUE(Stream().empty());
    }
}

TEST_F(StreamTest, ResyncGivesUpAfterItsReadsOrOnSilence) {
    Push(Stream(), Garbage(4 + 2560 * 2048));
    Push(Stream(), Frame(1, 0, 0));
    EXPECT_EQ(Read::Torn, link.ReadFrame(out.data(), 512).kind);
    EXPECT_EQ(4u + 2048u, Stream().size()) << "2560 reads, then no more";

    Stream().clear();
    Push(Stream(), Garbage(5000));
    EXPECT_EQ(Read::Torn, link.ReadFrame(out.data(), 512).kind);
    EXPECT_TRUE(Stream().empty());
}

TEST_F(StreamTest, BlockReadsWaitForWholeBlocks) {
    Push(Stream(), Samples(511, 0));
    Stream().push_back(0);
    Stream().push_back(0);
    Stream().push_back(0);
    EXPECT_FALSE(link.ReadSamples512(out.data())) << "2047 bytes: time-out";
    EXPECT_EQ(2047u, Stream().size()) << "nothing consumed";
    Stream().push_back(0);
    os::SetClockScale(10.0);  // room for a few real polls within the limit
    bus.StreamOf(kSerial).hiddenPolls = 3;  // late, but within it
    EXPECT_TRUE(link.ReadSamples512(out.data()));
    ExpectSample(out[510], 510);

    Push(Stream(), Samples(4095, 0));
    EXPECT_FALSE(link.ReadSamples4096(out.data()));
    EXPECT_TRUE(Stream().empty()) << "a missed stream block purges";
}

TEST_F(StreamTest, CaptureChecksItsSyncWord) {
    const Bytes sync = {0xA5, 0x5A, 0xF0, 0x0F};
    Bytes good = sync;
    const Bytes samples = Samples(1024, 9);
    good.insert(good.end(), samples.begin(), samples.end());
    bus.Expect({0x53, 0x02, 0xC0}, {}, good);
    EXPECT_EQ(AnalyzerLink::Capture::Complete, link.CaptureBlock(out.data(), 1024, 350));
    ExpectSample(out[1023], 1032);

    Bytes wrong = {0xA5, 0x5A, 0xF0, 0x0E};
    wrong.insert(wrong.end(), samples.begin(), samples.end());
    bus.Expect({0x53, 0x02, 0xC0}, {}, wrong);
    EXPECT_EQ(AnalyzerLink::Capture::NoSync, link.CaptureBlock(out.data(), 1024, 350));
    EXPECT_TRUE(Stream().empty());

    Bytes shortCapture = sync;
    shortCapture.resize(4 + 1000);
    bus.Expect({0x53, 0x02, 0xC0}, {}, shortCapture);
    EXPECT_EQ(AnalyzerLink::Capture::TimedOut, link.CaptureBlock(out.data(), 1024, 350));
    EXPECT_TRUE(Stream().empty());
}

TEST_F(StreamTest, ContinuousStreamIsStartedReadAndStopped) {
    Bytes stream = {1, 2, 3, 4};
    const Bytes blocks = Samples(8192, 0);
    stream.insert(stream.end(), blocks.begin(), blocks.end());
    bus.Expect({0x54, 0xC0}, {}, stream);
    bus.Expect({0x33, 0xC0});
    EXPECT_TRUE(link.CaptureStream(out.data(), 8192));
    EXPECT_EQ(Hex({1, 2, 3, 4}), Hex(Bytes(link.SyncWord(), link.SyncWord() + 4)));
    ExpectSample(out[8191], 8191);

    stream.resize(4 + 16384);  // one block of two
    bus.Expect({0x54, 0xC0}, {}, stream);
    bus.Expect({0x33, 0xC0});
    EXPECT_FALSE(link.CaptureStream(out.data(), 8192));

    Push(Stream(), Garbage(40000));
    for (int i = 0; i < 3; ++i) bus.Expect({0x33, 0xC0});
    link.StopStream();
    EXPECT_TRUE(Stream().empty()) << "stopping drains what came";
}

}  // namespace
}  // namespace qor::test
