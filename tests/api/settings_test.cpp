// Validation and holding of every configuration call, and the copy at qorInitiate.
#include <gtest/gtest.h>

#include "device_slot.h"
#include "qor_api.h"

namespace {

class Config : public ::testing::Test {
protected:
    OpenSlot slot{4};
    qor::Settings& s = slot.entry();
};

TEST_F(Config, CenterSpanRefusesAndKeepsOldValues) {
    EXPECT_EQ(qorConfigCenterSpan(4, 1e9, 0.5), qorFrequencyRangeErr);
    EXPECT_EQ(s.center, 9e8);
    EXPECT_EQ(qorConfigCenterSpan(4, 1.0, 1.0), qorFrequencyRangeErr);  // start 0.5 below 1 Hz
    EXPECT_EQ(qorConfigCenterSpan(4, 4.3e9, 2e8), qorNoError);          // stop touches 4.4 GHz
    EXPECT_EQ(s.start, 4.2e9);
    EXPECT_EQ(s.stop, 4.4e9);
    EXPECT_EQ(qorConfigCenterSpan(4, 4.3e9, 2.0000002e8), qorFrequencyRangeErr);
    EXPECT_EQ(s.span, 2e8);
    // The 12.4 GHz family's limits follow its device type.
    OpenSlot orsk(5, DeviceTypeOrskB);
    EXPECT_EQ(qorConfigCenterSpan(5, 1.29e10, 2e8), qorNoError);
    EXPECT_EQ(qorConfigCenterSpan(5, 1e6, 2e6), qorFrequencyRangeErr);
}

TEST_F(Config, LevelAlwaysCancelsManualGainAtten) {
    EXPECT_EQ(qorConfigGainAtten(4, 2, 1, true), qorNoError);
    EXPECT_EQ(qorConfigLevel(4, -10.0), qorNoError);
    EXPECT_EQ(s.atten, -1);
    EXPECT_EQ(s.gain, -1);
    EXPECT_FALSE(s.preamp);
    EXPECT_EQ(qorConfigGainAtten(4, 2, 1, true), qorNoError);
    EXPECT_EQ(qorConfigLevel(4, 25.0), qorParameterClamped);
    EXPECT_EQ(s.refLevel, 20.0);
    EXPECT_EQ(s.atten, -1);
    EXPECT_EQ(qorConfigGainAtten(4, 1, 1, false), qorNoError);
    EXPECT_EQ(s.refLevel, 20.0);  // the reverse does not hold
}

TEST_F(Config, GainAttenHolds) {
    EXPECT_EQ(qorConfigGainAtten(4, -5, -7, true), qorNoError);
    EXPECT_EQ(s.atten, -1);
    EXPECT_EQ(s.gain, -1);
    EXPECT_EQ(qorConfigGainAtten(4, 4, 3, false), qorParameterClamped);
    EXPECT_EQ(s.atten, 3);
    EXPECT_EQ(s.gain, 2);
}

TEST_F(Config, SweepCouplingBounds) {
    EXPECT_EQ(qorConfigSweepCoupling(4, 1000.0, 2000.0, true), qorBandwidthErr);
    EXPECT_EQ(qorConfigSweepCoupling(4, 0.09, 0.09, true), qorBandwidthErr);
    EXPECT_EQ(qorConfigSweepCoupling(4, 6000000.1, 10.0, true), qorBandwidthErr);
    EXPECT_EQ(qorConfigSweepCoupling(4, 1.0, 0.05, true), qorBandwidthErr);
    EXPECT_FALSE(s.reject);
    EXPECT_EQ(qorConfigSweepCoupling(4, 6e6, 6e6, true), qorNoError);
    EXPECT_EQ(s.rbw, 6e6);
    EXPECT_TRUE(s.reject);
}

TEST_F(Config, AcquisitionAndScale) {
    EXPECT_EQ(qorConfigAcquisition(4, 2, 0), qorInvalidDetectorErr);
    EXPECT_EQ(qorConfigAcquisition(4, 1, 4), qorInvalidScaleErr);
    EXPECT_EQ(s.detector, 0);
    EXPECT_EQ(qorConfigAcquisition(4, 1, 3), qorNoError);
    EXPECT_FALSE(s.logScale);
    EXPECT_EQ(qorConfigAcquisition(4, 1, 2), qorNoError);
    EXPECT_TRUE(s.logScale);
}

TEST_F(Config, EnumeratedValues) {
    EXPECT_EQ(qorConfigRBWShape(4, 0), qorInvalidParameterErr);
    EXPECT_EQ(qorConfigRBWShape(4, 3), qorInvalidParameterErr);
    EXPECT_EQ(qorConfigProcUnits(4, 4), qorInvalidParameterErr);
    EXPECT_EQ(qorConfigProcUnits(4, -1), qorInvalidParameterErr);
    EXPECT_EQ(qorConfigAudio(4, 5, 1e8, 1, 1, 1, 1), qorInvalidParameterErr);
    EXPECT_EQ(s.audioType, 0);
    EXPECT_EQ(qorConfigAudio(4, 4, 1e8, -1, -2, -3, -4), qorNoError);  // stored unchecked
    EXPECT_EQ(s.audioDeemphasis, -4);
}

TEST_F(Config, RealTimeAndTgHolds) {
    EXPECT_EQ(qorConfigRealTime(4, 5.0, 60), qorParameterClamped);
    EXPECT_EQ(s.rtFrameScale, 10.0);
    EXPECT_EQ(s.rtFrameRate, 30);
    EXPECT_EQ(qorConfigRealTime(4, 200.0, 4), qorNoError);
    EXPECT_EQ(qorConfigRealTimeOverlap(4, 0.1), qorParameterClamped);
    EXPECT_EQ(s.rtOverlap, 0.125);
    EXPECT_EQ(qorConfigRealTimeOverlap(4, 10.0), qorNoError);
    EXPECT_EQ(qorConfigTgSweep(4, 5, false, false), qorNoError);
    EXPECT_EQ(s.tgSweepSize, 10);
    EXPECT_EQ(qorConfigTgSweep(4, 5000, true, true), qorNoError);
    EXPECT_EQ(s.tgSweepSize, 1024);
}

TEST(SettingsCopy, KeepsTheWorkingValuesAndResetsOnOpen) {
    qor::Settings copy;
    copy.attenUsed = 2;
    copy.gainUsedB = 1;
    qor::Settings entry;
    entry.attenUsed = 3;
    entry.rbw = 10.0;
    copy.CopyFrom(entry);
    EXPECT_EQ(copy.rbw, 10.0);
    EXPECT_EQ(copy.attenUsed, 2);
    EXPECT_EQ(copy.gainUsedB, 1);

    entry.audioCenter = 1e8;
    entry.ResetForOpen(DeviceTypeVelm);
    EXPECT_EQ(entry.rbw, 3000.0);
    EXPECT_EQ(entry.audioCenter, 1e8);
    EXPECT_EQ(entry.maxFreq, 4.4e9);
}

}  // namespace
