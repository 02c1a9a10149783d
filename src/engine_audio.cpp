#include "engine_audio.h"

#include "analyzer_link.h"
#include "audio_chain.h"
#include "calibration_store.h"
#include "settings.h"
#include "stream_tuning.h"

namespace qor {

AudioEngine::AudioEngine(Settings* settings, AnalyzerLink* link, CalibrationStore* calibration, SweepInfo* sweepInfo,
                         AudioLevels* levels)
    : SweepEngine(settings, nullptr, link, calibration, nullptr, sweepInfo),
      corr(calibration->corr.get()),
      levels(levels),
      // The device's copy is taken anew at each initiate: the offset never adds up.
      centerHz((settings->audioCenter += settings->audioType == AudioCW ? kCwOffsetHz : 0.0) /
               corr->timebaseFactor),
      audioRing(kRingSamples) {
    CarryOverloadWithResults();
    StartThread([this] { Run(); });
}

void AudioEngine::Run() {
    // Always the high IF; the mirrored bands of the 12.4 GHz family stay
    // mirrored, and the level is the one the settings hold.
    const StreamTuning tuning = TuneStream(link, corr, *settings, centerHz, true);
    AudioChain chain(*settings, tuning.residualHz, *levels);
    smart_array<Ipp64fc> read(AudioChain::kReadSamples);
    ippsZero_64fc(read.get(), read.size());
    smart_array<Ipp32f> block(AudioChain::kBlockSamples);
    link->StartStream();
    while (running) {
        bool full = false;
        while (!full && running) {
            // A read that fails leaves what the read buffer held.
            if (!link->ReadSamples4096(read.get())) exchange.FailUsb();
            full = chain.Take(read.get());
        }
        if (!running) break;
        chain.Run(block.get());
        Deliver(block.get(), link->TakeClipped());
    }
    link->StopStream();
}

void AudioEngine::Deliver(const Ipp32f* block, bool clipped) {
    {
        std::lock_guard<std::mutex> lock(ringLock);
        ippsCopy_32f(block, audioRing.get() + ringWrite, kBlock);
        ringClipped[ringWrite / kBlock] = clipped;
    }
    ringWrite += kBlock;
    if (ringWrite >= kRingSamples) ringWrite = 0;
    // A reader a whole ring behind loses the ring.
    if (ringCount.fetch_add(kBlock) + kBlock >= kRingSamples) ringCount.fetch_sub(kRingSamples);
    exchange.Signal();
}

qorStatus AudioEngine::GetAudio(float* audio) {
    while (ringCount.load() < kBlock) {
        // No block will come soon from a unit that stopped answering.
        if (exchange.UsbFailed()) {
            ippsZero_32f(audio, kBlock);
            return qorUsbCommErr;
        }
        if (!exchange.AwaitSignal()) return qorNotConfiguredErr;
    }
    ringCount.fetch_sub(kBlock);
    bool clipped;
    {
        std::lock_guard<std::mutex> lock(ringLock);
        ippsCopy_32f(audioRing.get() + ringRead, audio, kBlock);
        clipped = ringClipped[ringRead / kBlock];
    }
    if (clipped) link->MarkCompression();
    ringRead += kBlock;
    if (ringRead >= kRingSamples) ringRead = 0;
    return exchange.UsbFailed() ? qorUsbCommErr : qorNoError;
}

}  // namespace qor
