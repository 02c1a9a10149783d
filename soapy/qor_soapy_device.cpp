#include "qor_soapy_device.h"

#include <SoapySDR/Logger.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include "qor_api.h"

namespace qorsoapy {

namespace {

constexpr int kMaxDecimationLog2 = 7;
constexpr double kNarrowestBandwidth = 100.0;
constexpr double kMaxCorrectionPpm = 1000.0;
// The widest I/Q bandwidth of each decimation 2^k.
constexpr double kWidestBandwidth[kMaxDecimationLog2 + 1] = {250000.0, 225000.0, 100000.0, 50000.0,
                                                            20000.0,  12000.0,  5000.0,   3000.0};

const char* TypeName(int type) {
    switch (type) {
        case DeviceTypeVelm: return "Velm";
        case DeviceTypeVelmB: return "VelmB";
        case DeviceTypeOrskA: return "OrskA";
        case DeviceTypeOrskB: return "OrskB";
        default: return "unknown";
    }
}

void CheckChannel(const int direction, const size_t channel) {
    if (direction != SOAPY_SDR_RX || channel != 0) throw std::invalid_argument("qor: one receive channel only");
}

}  // namespace

void Check(int status, const char* call) {
    if (status < 0) throw std::runtime_error(std::string("qor: ") + call + ": " + qorGetErrorString(qorStatus(status)));
    if (status > 0) SoapySDR::logf(SOAPY_SDR_WARNING, "qor: %s: %s", call, qorGetErrorString(qorStatus(status)));
}

QorDevice::QorDevice(int serial) : ladder_(DeviceTypeVelm) {
    Check(qorOpenDeviceBySerialNumber(&device_, serial), "open");
    serial_ = serial;
    qorGetDeviceType(device_, &type_);
    char firmware[16] = {};
    qorGetFirmwareString(device_, firmware);
    firmware_ = firmware;
    // The firmware's option digit tells where the factory calibration came from.
    calibrated_ = firmware_.size() > 10 && firmware_[10] == '1';
    ladder_ = GainLadder(type_);
    // A correction stored in the unit is where CORR starts.
    double factor = 1.0;
    if (qorGetTimebaseCorrection(device_, &factor) == qorNoError) correctionPpm_ = (factor - 1.0) * 1e6;
    try {
        std::lock_guard<std::mutex> hold(lock_);
        Apply();
    } catch (...) {
        qorCloseDevice(device_);
        throw;
    }
}

QorDevice::~QorDevice() {
    pump_.Stop();
    qorCloseDevice(device_);
}

std::string QorDevice::getHardwareKey() const { return std::string("qor ") + TypeName(type_); }

SoapySDR::Kwargs QorDevice::getHardwareInfo() const {
    char serial[16];
    std::snprintf(serial, sizeof serial, "%08d", serial_);
    return {{"serial", serial},
            {"device_type", std::to_string(type_)},
            {"firmware", firmware_},
            {"api_version", qorGetAPIVersion()},
            {"sample_scale", "calibrated: I^2+Q^2 is the power in mW, 0 dBm is magnitude 1.0 (CF32); CS16 32767 is magnitude 1.0"}};
}

size_t QorDevice::getNumChannels(const int direction) const { return direction == SOAPY_SDR_RX ? 1 : 0; }

// ---- Antenna --------------------------------------------------------------

std::vector<std::string> QorDevice::listAntennas(const int, const size_t) const { return {"RF"}; }

std::string QorDevice::getAntenna(const int, const size_t) const { return "RF"; }

// ---- Gain -----------------------------------------------------------------

std::vector<std::string> QorDevice::listGains(const int, const size_t) const {
    std::vector<std::string> names{"ATT", "IF"};
    if (ladder_.HasPreamp()) names.push_back("PRE");
    return names;
}

bool QorDevice::hasGainMode(const int, const size_t) const { return true; }

void QorDevice::setGainMode(const int direction, const size_t channel, const bool automatic) {
    CheckChannel(direction, channel);
    std::lock_guard<std::mutex> hold(lock_);
    automaticLevel_ = automatic;
    Apply();
}

bool QorDevice::getGainMode(const int, const size_t) const {
    std::lock_guard<std::mutex> hold(lock_);
    return automaticLevel_;
}

void QorDevice::setGain(const int direction, const size_t channel, const double value) {
    CheckChannel(direction, channel);
    std::lock_guard<std::mutex> hold(lock_);
    automaticLevel_ = false;
    level_ = ladder_.ForOverall(value);
    Apply();
}

void QorDevice::setGain(const int direction, const size_t channel, const std::string& name, const double value) {
    CheckChannel(direction, channel);
    std::lock_guard<std::mutex> hold(lock_);
    if (name == "ATT") {
        level_.atten = std::clamp(static_cast<int>(std::lround(-value / ladder_.AttenStepDb())), 0, 3);
    } else if (name == "IF") {
        level_.gain = ladder_.NearestGainIndex(value);
    } else if (name == "PRE") {
        level_.preamp = ladder_.HasPreamp() && value >= ladder_.PreampDb() / 2.0;
    } else {
        throw std::invalid_argument("qor: no gain element " + name);
    }
    automaticLevel_ = false;
    Apply();
}

double QorDevice::getGain(const int, const size_t) const {
    std::lock_guard<std::mutex> hold(lock_);
    return ladder_.Overall(level_);
}

double QorDevice::getGain(const int, const size_t, const std::string& name) const {
    std::lock_guard<std::mutex> hold(lock_);
    if (name == "ATT") return -level_.atten * ladder_.AttenStepDb();
    if (name == "IF") return ladder_.GainIndexDb(level_.gain);
    if (name == "PRE") return level_.preamp ? ladder_.PreampDb() : 0.0;
    throw std::invalid_argument("qor: no gain element " + name);
}

SoapySDR::Range QorDevice::getGainRange(const int, const size_t) const {
    return SoapySDR::Range(ladder_.Minimum(), ladder_.Maximum());
}

SoapySDR::Range QorDevice::getGainRange(const int, const size_t, const std::string& name) const {
    if (name == "ATT") return SoapySDR::Range(-3 * ladder_.AttenStepDb(), 0.0, ladder_.AttenStepDb());
    if (name == "IF") return SoapySDR::Range(0.0, ladder_.GainIndexDb(2));
    if (name == "PRE" && ladder_.HasPreamp()) return SoapySDR::Range(0.0, ladder_.PreampDb(), ladder_.PreampDb());
    throw std::invalid_argument("qor: no gain element " + name);
}

// ---- Frequency ------------------------------------------------------------

void QorDevice::setFrequency(const int direction, const size_t channel, const double frequency,
                             const SoapySDR::Kwargs& args) {
    // The timebase is a property of the unit, not of a tuning: a plain tune
    // leaves CORR alone unless the arguments name it.
    const auto given = [&args](const char* key) { return args.count(key) != 0 && args.at(key) != "DEFAULT"; };
    const auto ignored = [&args](const char* key) { return args.count(key) != 0 && args.at(key) == "IGNORE"; };
    double rf = frequency;
    if (given("OFFSET")) rf += std::stod(args.at("OFFSET"));
    if (given("RF") && !ignored("RF")) rf = std::stod(args.at("RF"));
    if (given("CORR") && !ignored("CORR")) setFrequency(direction, channel, "CORR", std::stod(args.at("CORR")), args);
    if (!ignored("RF")) setFrequency(direction, channel, "RF", rf, args);
}

void QorDevice::setFrequency(const int direction, const size_t channel, const std::string& name,
                             const double frequency, const SoapySDR::Kwargs&) {
    CheckChannel(direction, channel);
    const SoapySDR::Range range = getFrequencyRange(direction, channel, name).front();
    if (!(frequency >= range.minimum() && frequency <= range.maximum())) {
        throw std::out_of_range("qor: " + name + " " + std::to_string(frequency) + " is out of range");
    }
    std::lock_guard<std::mutex> hold(lock_);
    if (name == "RF") {
        center_ = frequency;
    } else if (name == "CORR") {
        correctionPpm_ = frequency;
    } else {
        throw std::invalid_argument("qor: no frequency element " + name);
    }
    Apply();
}

double QorDevice::getFrequency(const int, const size_t, const std::string& name) const {
    std::lock_guard<std::mutex> hold(lock_);
    if (name == "RF") return center_;
    if (name == "CORR") return correctionPpm_;
    throw std::invalid_argument("qor: no frequency element " + name);
}

std::vector<std::string> QorDevice::listFrequencies(const int, const size_t) const { return {"RF", "CORR"}; }

SoapySDR::RangeList QorDevice::getFrequencyRange(const int, const size_t, const std::string& name) const {
    if (name == "CORR") return {SoapySDR::Range(-kMaxCorrectionPpm, kMaxCorrectionPpm)};
    if (name != "RF") throw std::invalid_argument("qor: no frequency element " + name);
    const bool orsk = type_ == DeviceTypeOrskA || type_ == DeviceTypeOrskB;
    // The library tunes centre +- half a hertz inside the unit's limits.
    return {orsk ? SoapySDR::Range(100000.5, 1.3e10 - 0.5) : SoapySDR::Range(1.5, 4.4e9 - 0.5)};
}

SoapySDR::RangeList QorDevice::getFrequencyRange(const int direction, const size_t channel) const {
    return getFrequencyRange(direction, channel, "RF");
}

SoapySDR::ArgInfoList QorDevice::getFrequencyArgsInfo(const int, const size_t) const {
    SoapySDR::ArgInfo corr;
    corr.key = "CORR";
    corr.name = "Timebase correction";
    corr.type = SoapySDR::ArgInfo::FLOAT;
    corr.units = "ppm";
    corr.value = "DEFAULT";
    corr.range = SoapySDR::Range(-kMaxCorrectionPpm, kMaxCorrectionPpm);
    corr.description = "how far the unit's frequencies are off; a plain tune leaves it as it is";
    corr.options = {"DEFAULT", "IGNORE"};
    return {corr};
}

bool QorDevice::hasFrequencyCorrection(const int, const size_t) const { return true; }

void QorDevice::setFrequencyCorrection(const int direction, const size_t channel, const double value) {
    setFrequency(direction, channel, "CORR", value, {});
}

double QorDevice::getFrequencyCorrection(const int direction, const size_t channel) const {
    return getFrequency(direction, channel, "CORR");
}

// ---- Sample rate and bandwidth -------------------------------------------

void QorDevice::setSampleRate(const int direction, const size_t channel, const double rate) {
    CheckChannel(direction, channel);
    // The nearest of the decimated rates.
    int best = 0;
    for (int k = 1; k <= kMaxDecimationLog2; ++k) {
        if (std::fabs(std::log(kFullRate / (1 << k) / rate)) < std::fabs(std::log(kFullRate / (1 << best) / rate))) best = k;
    }
    std::lock_guard<std::mutex> hold(lock_);
    decimationLog2_ = best;
    Apply();
}

double QorDevice::getSampleRate(const int, const size_t) const {
    std::lock_guard<std::mutex> hold(lock_);
    return kFullRate / (1 << decimationLog2_);
}

std::vector<double> QorDevice::listSampleRates(const int, const size_t) const {
    std::vector<double> rates;
    for (int k = kMaxDecimationLog2; k >= 0; --k) rates.push_back(kFullRate / (1 << k));
    return rates;
}

SoapySDR::RangeList QorDevice::getSampleRateRange(const int direction, const size_t channel) const {
    // The rates are fractions of 486111.11...: a rate written to the Hz
    // (243055.56, say, as GNU Radio users type it) counts as the rate itself,
    // and setSampleRate takes the nearest.
    SoapySDR::RangeList ranges;
    for (double rate : listSampleRates(direction, channel)) ranges.emplace_back(rate - 1.0, rate + 1.0);
    return ranges;
}

double QorDevice::BandwidthLimit() const { return kWidestBandwidth[decimationLog2_]; }

void QorDevice::setBandwidth(const int direction, const size_t channel, const double bw) {
    CheckChannel(direction, channel);
    std::lock_guard<std::mutex> hold(lock_);
    bandwidth_ = bw;
    Apply();
}

double QorDevice::getBandwidth(const int, const size_t) const {
    std::lock_guard<std::mutex> hold(lock_);
    return bandwidth_ <= 0.0 ? BandwidthLimit() : std::clamp(bandwidth_, kNarrowestBandwidth, BandwidthLimit());
}

SoapySDR::RangeList QorDevice::getBandwidthRange(const int, const size_t) const {
    std::lock_guard<std::mutex> hold(lock_);
    return {SoapySDR::Range(kNarrowestBandwidth, BandwidthLimit())};
}

// ---- Time -------------------------------------------------------------------

bool QorDevice::hasHardwareTime(const std::string& what) const { return what.empty(); }

long long QorDevice::getHardwareTime(const std::string&) const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// ---- Sensors and settings -------------------------------------------------

std::vector<std::string> QorDevice::listSensors() const { return {"temperature", "calibration"}; }

SoapySDR::ArgInfo QorDevice::getSensorInfo(const std::string& key) const {
    SoapySDR::ArgInfo info;
    info.key = key;
    if (key == "temperature") {
        info.name = "Temperature";
        info.type = SoapySDR::ArgInfo::FLOAT;
        info.units = "C";
        info.description = "the unit's temperature; while streaming, the value read when the stream started";
    } else if (key == "calibration") {
        info.name = "Calibration";
        info.type = SoapySDR::ArgInfo::STRING;
        info.description = "where the unit's factory calibration came from";
        info.options = {"unit", "file"};
        info.optionNames = {"read from the unit", "cache file or download"};
    } else {
        throw std::invalid_argument("qor: no sensor " + key);
    }
    return info;
}

std::string QorDevice::readSensor(const std::string& key) const {
    if (key == "temperature") {
        float temperature = 0.0f;
        Check(qorQueryTemperature(device_, &temperature), "temperature");
        return std::to_string(temperature);
    }
    if (key == "calibration") return calibrated_ ? "unit" : "file";
    throw std::invalid_argument("qor: no sensor " + key);
}

SoapySDR::ArgInfoList QorDevice::getSettingInfo() const {
    SoapySDR::ArgInfo ref;
    ref.key = "reference_level";
    ref.name = "Reference level";
    ref.type = SoapySDR::ArgInfo::FLOAT;
    ref.units = "dBm";
    ref.value = "-20";
    ref.range = SoapySDR::Range(-130.0, 20.0);
    ref.description = "the strongest level expected, which the automatic gain sets the unit for";
    return {ref};
}

void QorDevice::writeSetting(const std::string& key, const std::string& value) {
    if (key != "reference_level") throw std::invalid_argument("qor: no setting " + key);
    std::lock_guard<std::mutex> hold(lock_);
    refLevel_ = std::min(std::stod(value), 20.0);
    Apply();
}

std::string QorDevice::readSetting(const std::string& key) const {
    if (key != "reference_level") throw std::invalid_argument("qor: no setting " + key);
    std::lock_guard<std::mutex> hold(lock_);
    return std::to_string(refLevel_);
}

// ---- Applying -------------------------------------------------------------

void QorDevice::Apply() {
    Check(qorConfigCenterSpan(device_, center_, 1.0), "frequency");
    Check(qorSetTimebaseCorrection(device_, 1.0 + correctionPpm_ * 1e-6), "timebase correction");
    const double bandwidth = bandwidth_ <= 0.0 ? BandwidthLimit() : bandwidth_;
    Check(qorConfigIQ(device_, 1 << decimationLog2_, bandwidth), "sample rate");
    Check(qorConfigLevel(device_, refLevel_), "reference level");
    if (!automaticLevel_) Check(qorConfigGainAtten(device_, level_.atten, level_.gain, level_.preamp), "gain");
    if (active_) StartStream();
}

}  // namespace qorsoapy
