#include "engine_realtime_image.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "level_choice.h"
#include "rbw_filter.h"
#include "settings.h"
#include "stream_tuning.h"

namespace qor {
namespace {

constexpr int kHighIfFlag = 1;

}  // namespace

RealTimeGeometry RealTimeGeometryFor(int32_t fftSize, double overlap, int32_t frameRate, double span) {
    RealTimeGeometry g;
    g.fftSize = fftSize;
    g.hop = static_cast<int32_t>(fftSize * overlap);
    g.poi = (fftSize + g.hop) / kSampleRate;
    const int32_t spectraPerSecond = static_cast<int32_t>(kSampleRate / g.hop);
    g.spectraPerFrame = std::max(static_cast<int32_t>(spectraPerSecond * (1.0 / frameRate)) + 1, 1);
    g.binSize = kSampleRate / fftSize;
    g.spanBins = RoundSpanBins(static_cast<int32_t>(span / g.binSize));
    g.firstBin = (fftSize - g.spanBins) / 2;
    return g;
}

RealTimeImageEngine::RealTimeImageEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link,
                                         CalibrationStore* calibration, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, nullptr, sweepInfo),
      corr(calibration->corr.get()),
      geometry(RealTimeGeometryFor(filter->fftSize, settings->rtOverlap, settings->rtFrameRate, settings->span)),
      centerHz(settings->center / corr->timebaseFactor),
      window(settings->rbw, kSampleRate) {
    const int spanBins = geometry.spanBins;
    sampleRing.Allocate((kRingBlocks + kRepeatedBlocks) * kBlock);
    correctionsD.Allocate(spanBins);
    corrections.Allocate(spanBins);
    voltageRatios.Allocate(spanBins);
    power.Allocate(geometry.fftSize);
    mixTone.Allocate(kBlock);

    // The bins of the span lie around 0 Hz once the residual is mixed away.
    residualHz = PlanStream(link, corr, centerHz, true);
    const double startHz = settings->start / corr->timebaseFactor;
    const int belowCentre = geometry.fftSize / 2 - geometry.firstBin;
    ifOffsetBase = startHz - (centerHz + residualHz - belowCentre * geometry.binSize);
    mixFrequency = -residualHz / kSampleRate;
    if (mixFrequency < 0.0) mixFrequency += 1.0;

    sweepInfo->binSize = geometry.binSize;
    sweepInfo->sweepLength = spanBins;
    // Where the first span bin truly lies: below the centre by the bins
    // the truncating division left there.
    sweepInfo->startFreq = settings->center - belowCentre * geometry.binSize;
    sweepInfo->poi = geometry.poi;

    FrameScale scale;
    scale.logScale = settings->logScale;
    scale.refLevel = settings->refLevel;
    scale.frameScale = settings->rtFrameScale;
    scale.detector = settings->detector;
    imager = std::make_unique<FrameImager>(spanBins, geometry.spectraPerFrame, scale, corrections.get(),
                                           voltageRatios.get());
    sweepInfo->frameWidth = imager->Geometry().frameWidth;
    sweepInfo->frameHeight = kFrameHeight;

    CarryOverloadWithResults();
    StartThread([this] { Acquire(); });
    StartThread([this] { Process(); });
}

void RealTimeImageEngine::WakeThreads() {
    dataEvent.Shut();
    imager->Shut();
}

qorStatus RealTimeImageEngine::GetRealTimeFrame(float* sweep, float* frame, float* alphaFrame) {
    bool clipped = false;
    if (imager->Deliver(sweep, frame, alphaFrame, &clipped) == FrameHandoff::Read::Shut) return qorNotConfiguredErr;
    if (clipped) link->MarkCompression();
    return exchange.UsbFailed() ? qorUsbCommErr : qorNoError;
}

void RealTimeImageEngine::FillCorrections() {
    corr->temperature = link->ReadTemperature();
    corr->preampOn = settings->preamp;
    const int spanBins = geometry.spanBins;
    for (int i = 0; i < spanBins; ++i) {
        const double offset = (i - spanBins / 2) * geometry.binSize;
        const double dB = corr->GetCorrection(centerHz + offset, settings->attenUsed, settings->gainUsed,
                                              kHighIfFlag, offset - ifOffsetBase, -1);
        correctionsD[i] = dB;
        corrections[i] = static_cast<float>(dB);
        voltageRatios[i] = static_cast<float>(std::pow(10.0, dB / 20.0));
    }
}

void RealTimeImageEngine::Acquire() {
    smart_array<Ipp64fc> block(kBlock);
    ChooseStreamLevel(*settings, corr, [this] { FillCorrections(); }, correctionsD.get(), geometry.spanBins);
    inverted = TuneStream(link, corr, *settings, centerHz, true).inverted;
    link->StartStream();
    while (running) {
        // A read that fails leaves what the block held; the caller learns of
        // it at once, not after frames of samples the unit no longer sends.
        if (!link->ReadSamples4096(block.get()) && !exchange.UsbFailed()) {
            exchange.FailUsb();
            imager->Fail();
        }
        if (!running) break;
        StoreBlock(block.get());
    }
    link->StopStream();
}

void RealTimeImageEngine::StoreBlock(const Ipp64fc* block) {
    ippsTone_64fc(mixTone.get(), kBlock, 1.0, mixFrequency, &mixPhase, ippAlgHintFast);
    // A ring full of samples not yet transformed keeps them: the block is
    // dropped, and the spectra jump over it. Overwriting them would tear the
    // windows being read.
    if (samplesAvailable.load() + kBlock > kRingSamples) return;
    Ipp64fc* slot = sampleRing.get() + writeBlock * kBlock;
    ippsMul_64fc(block, mixTone.get(), slot, kBlock);
    if (inverted) ippsConj_64fc(slot, slot, kBlock);
    blockClipped[writeBlock] = link->TakeClipped();
    // The head of the ring repeats past its end.
    if (writeBlock >= kRingBlocks) {
        ippsCopy_64fc(slot, sampleRing.get() + (writeBlock - kRingBlocks) * kBlock, kBlock);
        blockClipped[writeBlock - kRingBlocks] = blockClipped[writeBlock];
    }
    if (++writeBlock >= kRingBlocks + kRepeatedBlocks) writeBlock = kRepeatedBlocks;
    samplesAvailable += kBlock;
    dataEvent.Set();
}

void RealTimeImageEngine::Process() {
    const int32_t fftSize = geometry.fftSize;
    const int32_t hop = geometry.hop;
    while (running) {
        // An FFT starts only once more than its length is stored.
        if (samplesAvailable.load() <= fftSize) {
            dataEvent.Wait();
            continue;
        }
        window.SpanPower(sampleRing.get() + readPosition, geometry.firstBin, geometry.spanBins, power.get());
        const int lastBlock = std::min((readPosition + fftSize - 1) / kBlock, kRingBlocks + kRepeatedBlocks - 1);
        bool clipped = false;
        for (int b = readPosition / kBlock; b <= lastBlock; ++b) clipped = clipped || blockClipped[b];
        readPosition += hop;
        if (readPosition >= kRingSamples) readPosition -= kRingSamples;
        imager->AddSpectrum(power.get(), clipped);
        samplesAvailable -= hop;
    }
}

}  // namespace qor
