// Status texts and the library's array helper.
#include <gtest/gtest.h>

#include <cstdint>

#include "qor_api.h"
#include "smart_array.h"

namespace {

TEST(StatusText, EveryCodeHasItsTextAndOthersTheFallback) {
    EXPECT_STREQ(qorGetErrorString(qorNoError), "No error");
    EXPECT_STREQ(qorGetErrorString(qorUsbCommErr), "USB communications error");
    EXPECT_STREQ(qorGetErrorString(qorTrackingGeneratorNotFound), qorGetErrorString(qorDeviceActiveErr));
    EXPECT_STREQ(qorGetErrorString(qorBandwidthClamped),
                 "Supplied bandwidth limited to within an accepted range of operating values");
    for (int unknown : {-21, -13, -1000, 5, 1 << 30}) {
        EXPECT_STREQ(qorGetErrorString(static_cast<qorStatus>(unknown)), "Invalid Status Code") << unknown;
    }
    const int known[] = {-666, -99, -95, -94, -91, -89, -20, -12, -11, -10, -9, -8, -7,
                         -6,   -5,  -4,  -3,  -2,  -1,  0,   1,   2,   3,   4};
    for (int status : known) {
        EXPECT_STRNE(qorGetErrorString(static_cast<qorStatus>(status)), "Invalid Status Code") << status;
    }
    // A static text for every status: the same pointer each time, never empty.
    for (int s = -1000; s <= 1000; ++s) {
        const char* text = qorGetErrorString(static_cast<qorStatus>(s));
        ASSERT_NE(text, nullptr) << s;
        EXPECT_NE(text[0], '\0') << s;
        EXPECT_EQ(text, qorGetErrorString(static_cast<qorStatus>(s))) << s;
    }
}

TEST(SmartArray, AlignedEmptyAndRefusedLengths) {
    qor::smart_array<double> empty(0);
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.get(), nullptr);
    qor::smart_array<double> block(1000);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.get()) % 64, 0u);
    block[999] = 1.0;
    try {
        qor::smart_array<float> negative(-1);
        FAIL() << "a negative length must throw";
    } catch (const qor::tw_exception& e) {
        EXPECT_STREQ(e.what(), "Invalid smart_array length in malloc()");
    }
    try {
        qor::smart_array<double> huge(INT32_MAX);
        FAIL() << "an impossible length must throw";
    } catch (const qor::tw_exception& e) {
        EXPECT_STREQ(e.what(), "Smart Pointer Malloc Error");
    }
}

}  // namespace
