#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "ipps.h"
#include "path_guard.h"

namespace {

TEST(Memory, AlignedBlocksAndNullForEmptyLengths) {
    EXPECT_EQ(ippsMalloc_64fc(0), nullptr);
    EXPECT_EQ(ippsMalloc_8u(-3), nullptr);
    for (int length : {1, 3, 17, 1000}) {
        for (void* b : {static_cast<void*>(ippsMalloc_8u(length)), static_cast<void*>(ippsMalloc_64f(length)),
                        static_cast<void*>(ippsMalloc_64fc(length))}) {
            ASSERT_NE(b, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % 64, 0u);
            ippsFree(b);
        }
    }
    ippsFree(nullptr);
}

TEST(Dispatch, IndexFollowsTheProcessorAndCanBeLowered) {
    const int detected = ippGetDetectedCpuIndex();
    EXPECT_EQ(ippGetCpuIndex(), detected);
    EXPECT_GE(detected, ippCpuSSE3);
    EXPECT_LE(detected, ippCpuAVX2);
    EXPECT_EQ(ippSetCpuIndex(detected + 1), ippStsBadArgErr);
    EXPECT_EQ(ippSetCpuIndex(-1), ippStsBadArgErr);
    EXPECT_EQ(ippSetCpuIndex(ippCpuSSE3), ippStsNoErr);
    EXPECT_EQ(ippGetCpuIndex(), ippCpuSSE3);
    EXPECT_EQ(ippSetCpuIndex(detected), ippStsNoErr);
}

TEST(ZeroCopyMove, ExactlyTheLengthAndOverlapBothWays) {
    std::vector<Ipp64fc> c(5, Ipp64fc{1.0, 2.0});
    EXPECT_EQ(ippsZero_64fc(c.data(), 4), ippStsNoErr);
    EXPECT_EQ(c[3].im, 0.0);
    EXPECT_EQ(c[4].re, 1.0);
    const std::vector<Ipp64f> src{1.5, -2.5, 3.5};
    std::vector<Ipp64f> dst(4, 9.0);
    EXPECT_EQ(ippsCopy_64f(src.data(), dst.data(), 3), ippStsNoErr);
    EXPECT_EQ(dst, (std::vector<Ipp64f>{1.5, -2.5, 3.5, 9.0}));
    for (int shift : {-3, 3}) {
        std::vector<Ipp32f> a(20);
        for (int i = 0; i < 20; ++i) a[i] = static_cast<float>(i);
        const int from = shift > 0 ? 2 : 5;
        std::vector<Ipp32f> expected = a;
        std::copy(a.begin() + from, a.begin() + from + 10, expected.begin() + from + shift);
        EXPECT_EQ(ippsMove_32f(a.data() + from, a.data() + from + shift, 10), ippStsNoErr);
        EXPECT_EQ(a, expected) << "shift " << shift;
    }
}

TEST(Convert, WidthAndScaleRules) {
    const std::vector<Ipp16s> raw{-32768, 32767, 0, 16384};
    std::vector<Ipp64f> wide(4);
    EXPECT_EQ(ippsConvert_16s64f_Sfs(raw.data(), wide.data(), 4, 15), ippStsNoErr);
    EXPECT_EQ(wide, (std::vector<Ipp64f>{-1.0, 32767.0 / 32768.0, 0.0, 0.5}));

    const std::vector<Ipp32f> f{3e9f, -3e9f, 2.5f, 3.5f, -2.5f, 1.25f, std::numeric_limits<float>::quiet_NaN()};
    std::vector<Ipp32s> s(f.size());
    EXPECT_EQ(ippsConvert_32f32s_Sfs(f.data(), s.data(), 7, ippRndNear, 0), ippStsNoErr);
    EXPECT_EQ(s, (std::vector<Ipp32s>{2147483647, -2147483647 - 1, 2, 4, -2, 1, 0}));
    EXPECT_EQ(ippsConvert_32f32s_Sfs(f.data() + 2, s.data(), 1, ippRndNear, -2), ippStsNoErr);
    EXPECT_EQ(s[0], 10);  // 2.5 x 4
    EXPECT_EQ(ippsConvert_32f32s_Sfs(f.data() + 3, s.data(), 1, ippRndZero, 1), ippStsNoErr);
    EXPECT_EQ(s[0], 1);  // 3.5 / 2 toward zero

    const std::vector<Ipp64f> d{0.1, -1e300};
    std::vector<Ipp32f> narrow(2);
    std::vector<Ipp64f> back(2);
    EXPECT_EQ(ippsConvert_64f32f(d.data(), narrow.data(), 2), ippStsNoErr);
    EXPECT_EQ(narrow, (std::vector<Ipp32f>{0.1f, -std::numeric_limits<float>::infinity()}));
    EXPECT_EQ(ippsConvert_32f64f(narrow.data(), back.data(), 2), ippStsNoErr);
    EXPECT_EQ(back[0], static_cast<double>(0.1f));
    const std::vector<Ipp32s> ints{-7, 16777217};
    EXPECT_EQ(ippsConvert_32s32f(ints.data(), narrow.data(), 2), ippStsNoErr);
    EXPECT_EQ(narrow, (std::vector<Ipp32f>{-7.0f, 16777216.0f}));
}

// The device's samples on every code path: widened exactly, and counted
// against a range with edges on both sides, at lengths that leave tails and
// past the vector counters' flush.
TEST(Convert, SamplesWidenAndCountOnEachCodePath) {
    std::mt19937 random(5);
    std::uniform_int_distribution<int> value(-32768, 32767);
    std::vector<Ipp16s> raw(600001);
    for (auto& v : raw) v = static_cast<Ipp16s>(value(random));
    raw[3] = -32768;
    raw[4] = 32767;
    qor_test::OnEachCodePath([&](int) {
        for (int length : {1, 7, 8, 17, 33, 600001}) {
            SCOPED_TRACE(length);
            std::vector<Ipp64f> wide(length);
            ASSERT_EQ(ippsConvert_16s64f_Sfs(raw.data(), wide.data(), length, 15), ippStsNoErr);
            for (int i = 0; i < length; ++i) ASSERT_EQ(wide[i], raw[i] / 32768.0) << i;
            for (const auto& [lower, upper] : {std::pair<Ipp16s, Ipp16s>{-32111, 32111}, {-32768, 32767}, {5, 4}}) {
                int count = -1;
                ASSERT_EQ(ippsCountInRange_16s(raw.data(), length, &count, lower, upper), ippStsNoErr);
                EXPECT_EQ(count, std::count_if(raw.begin(), raw.begin() + length,
                                               [&](Ipp16s v) { return v >= lower && v <= upper; }));
            }
        }
    });
}

TEST(Convert, BadArgumentsWriteNothing) {
    std::vector<Ipp64f> d{9.0};
    std::vector<Ipp16s> raw{1};
    std::vector<Ipp32s> s{5};
    const Ipp32f one = 1.0f;
    EXPECT_EQ(ippsConvert_16s64f_Sfs(nullptr, d.data(), 1, 0), ippStsNullPtrErr);
    EXPECT_EQ(ippsConvert_16s64f_Sfs(raw.data(), d.data(), 0, 0), ippStsSizeErr);
    EXPECT_EQ(ippsZero_64f(d.data(), -1), ippStsSizeErr);
    EXPECT_EQ(ippsCopy_64f(nullptr, d.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsConvert_32f32s_Sfs(&one, s.data(), 1, static_cast<IppRoundMode>(7), 0), ippStsBadArgErr);
    EXPECT_EQ(d[0], 9.0);
    EXPECT_EQ(s[0], 5);
}

}  // namespace
