// A qor analyzer as a SoapySDR device: one receive channel streaming the
// library's calibrated I/Q. Every setting goes to the library's settings of
// the device; a running stream takes a change by starting its mode again.
#ifndef QOR_SOAPY_DEVICE_H
#define QOR_SOAPY_DEVICE_H

#include <SoapySDR/Device.hpp>

#include <mutex>
#include <string>
#include <vector>

#include "gain_ladder.h"
#include "iq_pump.h"

namespace qorsoapy {

// Samples per second of the undecimated stream.
constexpr double kFullRate = 486111.1111111111;

class QorDevice : public SoapySDR::Device {
public:
    explicit QorDevice(int serial);
    ~QorDevice() override;

    // Identification
    std::string getDriverKey() const override { return "qor"; }
    std::string getHardwareKey() const override;
    SoapySDR::Kwargs getHardwareInfo() const override;
    size_t getNumChannels(const int direction) const override;

    // Streams
    std::vector<std::string> getStreamFormats(const int direction, const size_t channel) const override;
    std::string getNativeStreamFormat(const int direction, const size_t channel, double& fullScale) const override;
    SoapySDR::Stream* setupStream(const int direction, const std::string& format, const std::vector<size_t>& channels,
                                  const SoapySDR::Kwargs& args) override;
    void closeStream(SoapySDR::Stream* stream) override;
    size_t getStreamMTU(SoapySDR::Stream* stream) const override;
    int activateStream(SoapySDR::Stream* stream, const int flags, const long long timeNs, const size_t numElems) override;
    int deactivateStream(SoapySDR::Stream* stream, const int flags, const long long timeNs) override;
    int readStream(SoapySDR::Stream* stream, void* const* buffs, const size_t numElems, int& flags, long long& timeNs,
                   const long timeoutUs) override;

    // Antenna
    std::vector<std::string> listAntennas(const int direction, const size_t channel) const override;
    std::string getAntenna(const int direction, const size_t channel) const override;

    // Gain
    std::vector<std::string> listGains(const int direction, const size_t channel) const override;
    bool hasGainMode(const int direction, const size_t channel) const override;
    void setGainMode(const int direction, const size_t channel, const bool automatic) override;
    bool getGainMode(const int direction, const size_t channel) const override;
    void setGain(const int direction, const size_t channel, const double value) override;
    void setGain(const int direction, const size_t channel, const std::string& name, const double value) override;
    double getGain(const int direction, const size_t channel) const override;
    double getGain(const int direction, const size_t channel, const std::string& name) const override;
    SoapySDR::Range getGainRange(const int direction, const size_t channel) const override;
    SoapySDR::Range getGainRange(const int direction, const size_t channel, const std::string& name) const override;

    // Frequency
    void setFrequency(const int direction, const size_t channel, const double frequency,
                      const SoapySDR::Kwargs& args = SoapySDR::Kwargs()) override;
    void setFrequency(const int direction, const size_t channel, const std::string& name, const double frequency,
                      const SoapySDR::Kwargs& args = SoapySDR::Kwargs()) override;
    double getFrequency(const int direction, const size_t channel, const std::string& name) const override;
    SoapySDR::RangeList getFrequencyRange(const int direction, const size_t channel) const override;
    SoapySDR::ArgInfoList getFrequencyArgsInfo(const int direction, const size_t channel) const override;
    std::vector<std::string> listFrequencies(const int direction, const size_t channel) const override;
    SoapySDR::RangeList getFrequencyRange(const int direction, const size_t channel,
                                          const std::string& name) const override;
    bool hasFrequencyCorrection(const int direction, const size_t channel) const override;
    void setFrequencyCorrection(const int direction, const size_t channel, const double value) override;
    double getFrequencyCorrection(const int direction, const size_t channel) const override;

    // Sample rate and bandwidth
    void setSampleRate(const int direction, const size_t channel, const double rate) override;
    double getSampleRate(const int direction, const size_t channel) const override;
    std::vector<double> listSampleRates(const int direction, const size_t channel) const override;
    SoapySDR::RangeList getSampleRateRange(const int direction, const size_t channel) const override;
    void setBandwidth(const int direction, const size_t channel, const double bw) override;
    double getBandwidth(const int direction, const size_t channel) const override;
    SoapySDR::RangeList getBandwidthRange(const int direction, const size_t channel) const override;

    // Time: the stream's stamps are the host's wall clock
    bool hasHardwareTime(const std::string& what) const override;
    long long getHardwareTime(const std::string& what) const override;

    // Sensors and settings
    std::vector<std::string> listSensors() const override;
    SoapySDR::ArgInfo getSensorInfo(const std::string& key) const override;
    std::string readSensor(const std::string& key) const override;
    SoapySDR::ArgInfoList getSettingInfo() const override;
    void writeSetting(const std::string& key, const std::string& value) override;
    std::string readSetting(const std::string& key) const override;

private:
    struct RxStream {
        bool cs16 = false;  // else CF32
    };

    // Writes every setting to the library; restarts a running stream.
    void Apply();
    void StartStream();
    double BandwidthLimit() const;

    int device_ = -1;
    int serial_ = 0;
    int type_ = 0;
    bool calibrated_ = false;
    std::string firmware_;
    GainLadder ladder_;

    mutable std::mutex lock_;  // the settings below and the stream's start and stop
    double center_ = 100e6;
    double correctionPpm_ = 0.0;
    int decimationLog2_ = 1;
    double bandwidth_ = 0.0;  // 0: the widest of the sample rate
    bool automaticLevel_ = true;
    double refLevel_ = -20.0;
    LevelSetting level_{2, 1, false};
    RxStream* stream_ = nullptr;
    bool active_ = false;
    IqPump pump_;
};

// Throws std::runtime_error with the status text for an error; a warning is logged.
void Check(int status, const char* call);

}  // namespace qorsoapy

#endif
