// The receive stream: the library's I/Q mode, pulled by the pump.
#include <SoapySDR/Formats.hpp>
#include <SoapySDR/Logger.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "qor_api.h"
#include "qor_soapy_device.h"

namespace qorsoapy {

std::vector<std::string> QorDevice::getStreamFormats(const int, const size_t) const {
    return {SOAPY_SDR_CF32, SOAPY_SDR_CS16};
}

std::string QorDevice::getNativeStreamFormat(const int, const size_t, double& fullScale) const {
    // Calibrated samples: magnitude 1.0 is 0 dBm.
    fullScale = 1.0;
    return SOAPY_SDR_CF32;
}

SoapySDR::Stream* QorDevice::setupStream(const int direction, const std::string& format,
                                         const std::vector<size_t>& channels, const SoapySDR::Kwargs&) {
    if (direction != SOAPY_SDR_RX) throw std::invalid_argument("qor: receive only");
    if (channels.size() > 1 || (channels.size() == 1 && channels[0] != 0)) {
        throw std::invalid_argument("qor: one channel, 0");
    }
    if (format != SOAPY_SDR_CF32 && format != SOAPY_SDR_CS16) throw std::invalid_argument("qor: format " + format);
    std::lock_guard<std::mutex> hold(lock_);
    if (stream_ != nullptr) throw std::runtime_error("qor: the stream is set up already");
    stream_ = new RxStream;
    stream_->cs16 = format == SOAPY_SDR_CS16;
    return reinterpret_cast<SoapySDR::Stream*>(stream_);
}

void QorDevice::closeStream(SoapySDR::Stream* stream) {
    deactivateStream(stream, 0, 0);
    std::lock_guard<std::mutex> hold(lock_);
    delete stream_;
    stream_ = nullptr;
}

size_t QorDevice::getStreamMTU(SoapySDR::Stream*) const {
    std::lock_guard<std::mutex> hold(lock_);
    return 16384 >> decimationLog2_;
}

int QorDevice::activateStream(SoapySDR::Stream*, const int flags, const long long, const size_t) {
    if (flags != 0) return SOAPY_SDR_NOT_SUPPORTED;
    std::lock_guard<std::mutex> hold(lock_);
    active_ = true;
    try {
        StartStream();
    } catch (const std::exception& e) {
        active_ = false;
        SoapySDR::logf(SOAPY_SDR_ERROR, "%s", e.what());
        return SOAPY_SDR_STREAM_ERROR;
    }
    return 0;
}

int QorDevice::deactivateStream(SoapySDR::Stream*, const int, const long long) {
    std::lock_guard<std::mutex> hold(lock_);
    active_ = false;
    pump_.Stop();
    return 0;
}

void QorDevice::StartStream() {
    pump_.Stop();
    Check(qorInitiate(device_, ModeIQ), "start the I/Q stream");
    int blockLength = 0;
    Check(qorQueryStreamInfo(device_, &blockLength, nullptr, nullptr), "stream info");
    pump_.Start(device_, blockLength, kFullRate / (1 << decimationLog2_));
}

int QorDevice::readStream(SoapySDR::Stream*, void* const* buffs, const size_t numElems, int& flags,
                          long long& timeNs, const long timeoutUs) {
    flags = 0;
    const bool cs16 = stream_->cs16;
    int result = 0;
    const bool read = pump_.Read(std::chrono::microseconds(std::max(timeoutUs, 0L)), [&](IqBlock& block) {
        if (block.loss) {
            // Once for each loss; the block's samples follow in the next read.
            block.loss = false;
            result = SOAPY_SDR_OVERFLOW;
            return;
        }
        const int count = std::min(static_cast<int>(numElems), block.count - block.offset);
        const std::complex<float>* from = block.samples.data() + block.offset;
        if (cs16) {
            // As the tool's cs16 recordings: 32767 is magnitude 1.0, so full scale is 0 dBm.
            int16_t* to = static_cast<int16_t*>(buffs[0]);
            for (int i = 0; i < 2 * count; ++i) {
                const float v = reinterpret_cast<const float*>(from)[i] * 32767.0f;
                to[i] = static_cast<int16_t>(std::lrint(std::clamp(v, -32768.0f, 32767.0f)));
            }
        } else {
            std::copy(from, from + count, static_cast<std::complex<float>*>(buffs[0]));
        }
        flags = SOAPY_SDR_HAS_TIME;
        timeNs = block.timeNs + std::llround(block.offset * 1e9 / pump_.SampleRate());
        block.offset += count;
        result = count;
    });
    if (!read) return pump_.Failure() != 0 ? SOAPY_SDR_STREAM_ERROR : SOAPY_SDR_TIMEOUT;
    return result;
}

}  // namespace qorsoapy
