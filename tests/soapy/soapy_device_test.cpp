// The module's device through SoapySDR's interface on the virtual instrument
// (unit 12000002, a -30 dBm tone at 1 GHz): the overall gain's order, and a
// stream that is retuned and stopped from other threads while a reader waits.
#include <SoapySDR/Device.hpp>
#include <SoapySDR/Formats.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <complex>
#include <thread>
#include <vector>

#include "qor_soapy_device.h"

namespace {

constexpr int kSerial = 12000002;

TEST(SoapyDevice, OverallGainTakesTheAttenuatorOutFirstAndThePreampLast) {
    qorsoapy::QorDevice dev(kSerial);
    struct Step { double overall, att, ifGain, pre; };
    const Step steps[] = {{-15, -15, 0, 0}, {-3, -5, 0, 0}, {0, 0, 0, 0}, {20, 0, 16, 0}, {28, 0, 28, 0}, {48, 0, 28, 20}};
    for (const Step& s : steps) {
        dev.setGain(SOAPY_SDR_RX, 0, s.overall);
        EXPECT_EQ(dev.getGain(SOAPY_SDR_RX, 0, "ATT"), s.att) << s.overall;
        EXPECT_EQ(dev.getGain(SOAPY_SDR_RX, 0, "IF"), s.ifGain) << s.overall;
        EXPECT_EQ(dev.getGain(SOAPY_SDR_RX, 0, "PRE"), s.pre) << s.overall;
        EXPECT_FALSE(dev.getGainMode(SOAPY_SDR_RX, 0));
    }
    EXPECT_EQ(dev.getGainRange(SOAPY_SDR_RX, 0).minimum(), -15);
    EXPECT_EQ(dev.getGainRange(SOAPY_SDR_RX, 0).maximum(), 48);
}

// The power (mW) of a block's component at `hz`, by one DFT bin.
double PowerAt(const std::vector<std::complex<float>>& x, double hz, double rate) {
    std::complex<double> sum = 0;
    for (size_t n = 0; n < x.size(); ++n) sum += std::complex<double>(x[n]) * std::polar(1.0, -2 * M_PI * hz * n / rate);
    return std::norm(sum / double(x.size()));
}

TEST(SoapyDevice, RetunesAndStopsWhileAReaderWaits) {
    qorsoapy::QorDevice dev(kSerial);
    dev.setSampleRate(SOAPY_SDR_RX, 0, 60e3);
    dev.setFrequency(SOAPY_SDR_RX, 0, 1e9 + 5e3);
    SoapySDR::Stream* stream = dev.setupStream(SOAPY_SDR_RX, SOAPY_SDR_CF32, {0}, {});
    const size_t mtu = dev.getStreamMTU(stream);
    ASSERT_EQ(dev.activateStream(stream, 0, 0, 0), 0);
    const double rate = dev.getSampleRate(SOAPY_SDR_RX, 0);
    // One read into `block`; its result, and its flags in `flags`.
    const auto read = [&](std::vector<std::complex<float>>& block, long timeoutUs, int* flags) {
        void* buffs[] = {block.data()};
        long long timeNs = 0;
        return dev.readStream(stream, buffs, mtu, *flags, timeNs, timeoutUs);
    };

    std::atomic<bool> done{false};
    std::atomic<int> errors{0};
    std::thread reader([&] {
        std::vector<std::complex<float>> buf(mtu);
        int flags = 0;
        while (!done) {
            const int r = read(buf, 100000, &flags);
            if (r < 0 && r != SOAPY_SDR_TIMEOUT && r != SOAPY_SDR_OVERFLOW) ++errors;
        }
    });
    for (double offset : {-10e3, 2e3, -3e3}) {
        dev.setFrequency(SOAPY_SDR_RX, 0, 1e9 - offset);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    done = true;
    reader.join();
    EXPECT_EQ(errors, 0);

    // The last tuning holds: the tone 3 kHz below the centre, at its power, past the filters' start.
    std::vector<std::complex<float>> block(mtu);
    for (int i = 0; i < 3; ++i) {
        int flags = 0, r;
        while ((r = read(block, 1000000, &flags)) == SOAPY_SDR_OVERFLOW) {
        }
        ASSERT_EQ(r, static_cast<int>(mtu));
        EXPECT_TRUE(flags & SOAPY_SDR_HAS_TIME);
    }
    EXPECT_NEAR(10 * std::log10(PowerAt(block, -3e3, rate)), -30.0, 0.5);

    // A reader waiting with a long time-out leaves when the stream stops.
    std::thread waiter([&] {
        std::vector<std::complex<float>> buf(mtu);
        int flags = 0;
        while (read(buf, 10000000, &flags) >= 0) {
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto before = std::chrono::steady_clock::now();
    dev.deactivateStream(stream, 0, 0);
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    dev.closeStream(stream);
}

}  // namespace
