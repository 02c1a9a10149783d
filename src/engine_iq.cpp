#include "engine_iq.h"

#include <algorithm>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "iq_decimator.h"
#include "level_choice.h"
#include "os.h"
#include "rbw_filter.h"
#include "settings.h"
#include "stream_tuning.h"

namespace qor {
namespace {

constexpr int kReadSamples = AnalyzerLink::kStreamSamples;
// The high IF below 10 MHz and for strong reference levels, else the low IF.
constexpr double kLowIfFrom = 1e7;
constexpr double kLowIfReferenceAtMost = 0.01;
// The outer half of the correction table takes the centre's value.
constexpr int kOuterFrom = 512;
constexpr int kOuterTo = 1535;

}  // namespace

IQEngine::IQEngine(Settings* settings, AnalyzerLink* link, CalibrationStore* calibration, SweepInfo* sweepInfo)
    : SweepEngine(settings, nullptr, link, calibration, nullptr, sweepInfo),
      corr(calibration->corr.get()),
      decimation(1 << settings->iqDecimationLog2),
      blockLength(kBlockSamples / decimation),
      centerHz(settings->center / corr->timebaseFactor),
      highIf(centerHz < kLowIfFrom || settings->refLevel > kLowIfReferenceAtMost) {
    iqBuffer.Resize(kBufferBlocks * blockLength);
    block.Allocate(kBlockSamples);
    mixTone.Allocate(kBlockSamples);
    floatBlock.Allocate(blockLength);
    CarryOverloadWithResults();
    StartThread([this] { Run(); });
}

void IQEngine::FillCorrections(double* table) {
    corr->temperature = link->ReadTemperature();
    corr->preampOn = settings->preamp;
    const int atten = settings->attenUsed;
    const int gain = settings->gainUsed;
    const int highIfFlag = highIf ? 1 : 0;
    const double centre = corr->GetCorrection(centerHz, atten, gain, highIfFlag, 0.0, -1);
    for (int k = 0; k < IQDecimator::kCorrectionBins; ++k) {
        if (k >= kOuterFrom && k <= kOuterTo) {
            table[k] = centre;
            continue;
        }
        const int bin = k <= IQDecimator::kCorrectionBins / 2 ? k : k - IQDecimator::kCorrectionBins;
        const double offset = bin * IQDecimator::kCorrectionBinHz;
        table[k] = corr->GetCorrection(centerHz + offset, atten, gain, highIfFlag, offset, -1);
    }
}

void IQEngine::ChooseLevel(double* table) {
    ChooseStreamLevel(*settings, corr, [&] { FillCorrections(table); }, table, IQDecimator::kCorrectionBins);
}

void IQEngine::Run() {
    IQDecimator decimator(settings->iqDecimationLog2, settings->iqBandwidth / kSampleRate);
    {
        smart_array<double> table(IQDecimator::kCorrectionBins);
        ChooseLevel(table.get());
        const StreamTuning tuning = TuneStream(link, corr, *settings, centerHz, highIf);
        decimator.ApplyCorrections(table.get());
        inverted = tuning.inverted;
        // The residual moves to exactly 0 Hz; the tone's phase runs on across blocks.
        mixFrequency = tuning.residualHz / -kSampleRate;
        if (mixFrequency < 0.0) mixFrequency += 1.0;
    }
    double phase = 0.0;
    ippsTone_64fc(mixTone.get(), kBlockSamples, 1.0, mixFrequency, &phase, ippAlgHintFast);
    link->StartStream();
    while (running) {
        for (int q = 0; q < kBlockSamples / kReadSamples && running; ++q) {
            // A read that fails leaves what this part of the block held.
            if (!link->ReadSamples4096(block.get() + q * kReadSamples)) exchange.FailUsb();
        }
        const bool clipped = link->TakeClipped();
        if (!running) break;
        ippsTone_64fc(mixTone.get(), kBlockSamples, 1.0, mixFrequency, &phase, ippAlgHintFast);
        ippsMul_64fc_I(mixTone.get(), block.get(), kBlockSamples);
        decimator.Process(block.get(), block.get());
        if (inverted) ippsConj_64fc(block.get(), block.get(), blockLength);
        int32_t seconds = 0, milliseconds = 0;
        os::WallClock(&seconds, &milliseconds);  // when the block is finished
        ippsConvert_64f32f(reinterpret_cast<const Ipp64f*>(block.get()), reinterpret_cast<Ipp32f*>(floatBlock.get()),
                           2 * blockLength);
        iqBuffer.Write(floatBlock.get(), blockLength, seconds, milliseconds, clipped);
        exchange.Signal();
    }
    link->StopStream();
}

qorStatus IQEngine::GetIQ(IQPacket& packet) {
    if (packet.purge) iqBuffer.Clear();
    int left = packet.iqCount;
    int position = 0;
    bool first = true;
    Ipp32fc* out = reinterpret_cast<Ipp32fc*>(packet.iqData);
    bool clipped = false;
    // A failed read ends the wait: the caller learns of it at once, with
    // what was there, rather than after samples the unit no longer sends.
    while (left > 0 && !exchange.UsbFailed()) {
        if (iqBuffer.Available() == 0 && !exchange.AwaitSignal()) return qorNotConfiguredErr;
        if (first && iqBuffer.Available() > 0) {
            packet.sec = iqBuffer.FirstSeconds();
            packet.milli = iqBuffer.FirstMilliseconds();
            first = false;
        }
        int received = 0;
        bool part = false;
        iqBuffer.Read(out + position, left, &received, decimation, &part);
        clipped = clipped || part;
        left -= received;
        position += received;
    }
    if (clipped) link->MarkCompression();
    packet.dataRemaining = iqBuffer.Available();
    packet.sampleLoss = iqBuffer.TakeOverrunFlag();
    return exchange.UsbFailed() ? qorUsbCommErr : qorNoError;
}

}  // namespace qor
