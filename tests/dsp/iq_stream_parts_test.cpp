// The parts of the I/Q stream below the engine.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "iq_circular_buffer.h"
#include "iq_decimator.h"

namespace {

using qor::IQCircularBuffer;

// A buffer of `capacity` samples, written with ramps of values from `first`.
class IqBuffer : public ::testing::Test {
protected:
    void Make(int capacity) {
        buffer.Resize(capacity);
        out.resize(static_cast<std::size_t>(capacity));
    }
    void Write(int count, float first, int seconds = 0, int milliseconds = 0, bool clipped = false) {
        std::vector<Ipp32fc> samples;
        for (int i = 0; i < count; ++i) samples.push_back({first + i, -(first + i)});
        buffer.Write(samples.data(), count, seconds, milliseconds, clipped);
    }
    IQCircularBuffer buffer;
    std::vector<Ipp32fc> out;
    int received = -1;
    bool clipped = true;
};

TEST_F(IqBuffer, WrapsInOrderAndEndsAtZeroNotAtTheCapacity) {
    Make(8);
    Write(6, 0, 10, 0);
    buffer.Read(out.data(), 4, &received, 1);
    Write(4, 6, 10, 0);  // 2 at the end, 2 at the start
    EXPECT_EQ(buffer.Available(), 6);
    buffer.Read(out.data(), 8, &received, 1);
    ASSERT_EQ(received, 6);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(out[i].re, 4.0f + i) << "the tail of the array first";
    Write(6, 0, 10, 0);  // from index 2 to the very end
    buffer.Read(out.data(), 6, &received, 1);
    EXPECT_EQ(buffer.Available(), 0);
    buffer.Read(out.data(), 3, &received, 1);
    EXPECT_EQ(received, 0) << "an empty buffer gives nothing";
}

TEST_F(IqBuffer, AWriteThatWouldFillItFlushesAndRaisesTheFlagOnce) {
    Make(8);
    Write(4, 0, 1, 100);
    Write(4, 4, 1, 200);  // 4 free, 4 to store: already an overrun
    EXPECT_EQ(buffer.Available(), 4);
    EXPECT_EQ(buffer.FirstMilliseconds(), 200) << "the stamp of the block that came into the empty buffer";
    EXPECT_EQ(buffer.TakeOverrunFlag(), 1);
    EXPECT_EQ(buffer.TakeOverrunFlag(), 0);
    Write(2, 0, 1, 300);
    buffer.Clear();
    EXPECT_EQ(buffer.Available(), 0);
    EXPECT_EQ(buffer.TakeOverrunFlag(), 0);
}

TEST_F(IqBuffer, TheStampMovesOnWithTheSamplesRead) {
    Make(4096);
    Write(2048, 0, 7, 999);
    // 1000 samples at decimation 1 span 2.057 ms: 2 whole ms, with the carry into the seconds.
    buffer.Read(out.data(), 1000, &received, 1);
    EXPECT_EQ(buffer.FirstSeconds(), 8);
    EXPECT_EQ(buffer.FirstMilliseconds(), 1);
    buffer.Read(out.data(), 1000, &received, 128);  // 263.3 ms
    EXPECT_EQ(buffer.FirstSeconds(), 8);
    EXPECT_EQ(buffer.FirstMilliseconds(), 264);
}

// A clipped block is reported by every read that takes some of it, and by
// none after; what an overrun or a clear throws away is forgotten with it.
TEST_F(IqBuffer, AReadSaysWhetherItTookSamplesOfAClippedBlock) {
    Make(16);
    Write(4, 0);
    Write(4, 4, 0, 0, true);
    Write(4, 8);
    const struct { int count; bool clipped; } reads[] = {{3, false}, {2, true}, {2, true}, {1, true}, {4, false}};
    for (const auto& read : reads) {
        buffer.Read(out.data(), read.count, &received, 1, &clipped);
        EXPECT_EQ(clipped, read.clipped) << "reading " << read.count;
    }
    Write(4, 0, 0, 0, true);
    buffer.Clear();
    Write(8, 0, 0, 0, true);
    Write(8, 0);  // an overrun: the clipped block goes
    buffer.Read(out.data(), 8, &received, 1, &clipped);
    EXPECT_EQ(received, 8);
    EXPECT_FALSE(clipped);
}

TEST(IqDecimator, InPlaceEqualsTwoArraysAtBothForms) {
    std::vector<double> table(qor::IQDecimator::kCorrectionBins, 0.0);
    for (int order : {3, 4}) {
        qor::IQDecimator apart(order, 0.05), inPlace(order, 0.05);
        apart.ApplyCorrections(table.data());
        inPlace.ApplyCorrections(table.data());
        std::vector<Ipp64fc> in(qor::IQDecimator::kBlockSamples), out(in.size());
        for (int block = 0; block < 2; ++block) {
            for (std::size_t i = 0; i < in.size(); ++i) in[i] = {std::cos(0.01 * i), std::sin(0.01 * i)};
            std::vector<Ipp64fc> same = in;
            apart.Process(in.data(), out.data());
            inPlace.Process(same.data(), same.data());
            for (int i = 0; i < (qor::IQDecimator::kBlockSamples >> order); ++i) {
                ASSERT_EQ(out[i].re, same[i].re) << "order " << order << " sample " << i;
            }
        }
    }
}

}  // namespace
