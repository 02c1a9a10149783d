#include "frame_imaging.h"

#include <cmath>

namespace qor {
namespace {

constexpr int32_t kMaxColumns = 1024;  // the image is narrower than this
constexpr float kDbPerLn = 4.342944622039795f;       // 10 / ln 10
constexpr float kMillivoltsPerRootMw = 223.60000610351562f;  // sqrt(50000): sqrt(mW) to mV on 50 ohm
constexpr double kMillivoltsAtZeroDbm = 46.9897;     // dB of mV at 0 dBm, 50 ohm
constexpr int32_t kTopRow = kFrameHeight - 1;
// A cell no longer hit keeps this much of its alpha per frame: 0.015 after 40 frames.
const float kAlphaDecay = static_cast<float>(std::pow(0.015, 0.025));

}  // namespace

int32_t RoundSpanBins(int32_t bins) {
    int shifts = 0;
    while (bins >= kMaxColumns) {
        if (bins % 2 != 0) ++bins;
        bins /= 2;
        ++shifts;
    }
    return bins << shifts;
}

FrameGeometry FrameGeometryFor(int32_t spanBins) {
    FrameGeometry g;
    g.frameWidth = spanBins;
    while (g.frameWidth >= kMaxColumns) {
        g.frameWidth /= 2;
        g.binsPerColumn *= 2;
    }
    g.frameCells = g.frameWidth * kFrameHeight;
    return g;
}

FrameImager::FrameImager(int32_t spanBins, int32_t spectraPerFrame, const FrameScale& scale,
                         const float* corrections, const float* voltageRatios)
    : spanBins_(spanBins),
      spectraPerFrame_(spectraPerFrame),
      scale_(scale),
      geometry_(FrameGeometryFor(spanBins)),
      corrections_(corrections),
      voltageRatios_(voltageRatios) {
    const int cells = geometry_.frameCells;
    accumulator_.Allocate(spanBins);
    ippsZero_32f(accumulator_.get(), spanBins);
    spectraMatrix_.Allocate(spanBins * spectraPerFrame);
    rowMatrix_.Allocate(spanBins * spectraPerFrame);
    floatFrame_.Allocate(cells);
    hitFrames_.resize(kHitSlots);
    for (auto& hits : hitFrames_) {
        hits.Allocate(cells);
        ippsZero_32s(hits.get(), cells);
    }
    sumFrames_.resize(FrameHandoff::kSlots);
    alphaFrames_.resize(FrameHandoff::kSlots);
    sweepFrames_.resize(FrameHandoff::kSlots);
    for (int slot = 0; slot < FrameHandoff::kSlots; ++slot) {
        sumFrames_[slot].Allocate(cells);
        ippsZero_32s(sumFrames_[slot].get(), cells);
        alphaFrames_[slot].Allocate(cells);
        ippsZero_32f(alphaFrames_[slot].get(), cells);
        sweepFrames_[slot].Allocate(spanBins);
        ippsZero_32f(sweepFrames_[slot].get(), spanBins);
    }
}

bool FrameImager::AddSpectrum(Ipp32f* power, bool clipped) {
    const int n = spanBins_;
    frameClipped_ = frameClipped_ || clipped;
    // The sweep works on the uncorrected power.
    if (scale_.detector == 1) {
        ippsAdd_32f(power, accumulator_.get(), accumulator_.get(), n);
    } else {
        ippsMaxEvery_32f(power, accumulator_.get(), accumulator_.get(), n);
    }
    if (scale_.logScale) {
        ippsLn_32f_A11(power, power, n);
        ippsMulC_32f_I(kDbPerLn, power, n);
        ippsAdd_32f(power, corrections_, power, n);
    } else {
        ippsSqrt_32f_A11(power, power, n);
        ippsMulC_32f_I(kMillivoltsPerRootMw, power, n);
        ippsMul_32f(power, voltageRatios_, power, n);
    }
    Ipp32f* column = spectraMatrix_.get() + spectrumCount_;
    for (int b = 0; b < n; ++b) column[static_cast<std::ptrdiff_t>(b) * spectraPerFrame_] = power[b];
    if (++spectrumCount_ < spectraPerFrame_) return false;
    FinishFrame();
    return true;
}

void FrameImager::FinishFrame() {
    Ipp32f* sweep = sweepFrames_[frameWrite_].get();
    if (scale_.detector == 1) {
        ippsMulC_32f(accumulator_.get(), static_cast<float>(1.0 / spectraPerFrame_), sweep, spanBins_);
    } else {
        ippsCopy_32f(accumulator_.get(), sweep, spanBins_);
    }
    ippsZero_32f(accumulator_.get(), spanBins_);
    MapLevelsToRows();
    Ipp32s* hits = hitFrames_[hitSlot_].get();
    CountHits(hits);
    Persist(frameWrite_ == 0 ? FrameHandoff::kSlots - 1 : frameWrite_ - 1);
    hitSlot_ = hitSlot_ + 1 == kHitSlots ? 0 : hitSlot_ + 1;
    slotClipped_[frameWrite_] = frameClipped_;
    frameClipped_ = false;
    frameWrite_ = handoff_.Advance();
    spectrumCount_ = 0;
}

void FrameImager::MapLevelsToRows() {
    const int n = spanBins_ * spectraPerFrame_;
    Ipp32f* levels = spectraMatrix_.get();
    if (scale_.logScale) {
        // rtFrameScale dB over 256 rows, the reference level at row 256.
        const float scale = static_cast<float>(scale_.frameScale);
        ippsAddC_32f_I(scale - static_cast<float>(scale_.refLevel), levels, n);
        ippsMulC_32f_I(static_cast<float>((100.0 / scale) * 2.56), levels, n);
    } else {
        // The reference level's voltage at row 255.
        const double fullScale = std::pow(10.0, (scale_.refLevel + kMillivoltsAtZeroDbm) / 20.0);
        ippsMulC_32f_I(static_cast<float>(kTopRow / fullScale), levels, n);
    }
    ippsConvert_32f32s_Sfs(levels, rowMatrix_.get(), n, ippRndNear, 0);
    // Levels beyond the image count in its bottom and top rows.
    ippsThreshold_LTValGTVal_32s(rowMatrix_.get(), rowMatrix_.get(), n, 0, 0, kTopRow, kTopRow);
}

void FrameImager::CountHits(Ipp32s* hits) {
    ippsZero_32s(hits, geometry_.frameCells);
    // The entries of a column's bins lie next to each other in the matrix.
    const int perColumn = geometry_.binsPerColumn * spectraPerFrame_;
    const Ipp32s* rows = rowMatrix_.get();
    for (int c = 0; c < geometry_.frameWidth; ++c, rows += perColumn) {
        Ipp32s* cells = hits + c * kFrameHeight;
        for (int k = 0; k < perColumn; ++k) ++cells[rows[k]];
    }
}

void FrameImager::Persist(int previous) {
    const int cells = geometry_.frameCells;
    const Ipp32s* hits = hitFrames_[hitSlot_].get();
    Ipp32s* sum = sumFrames_[frameWrite_].get();
    // The running sum of the 39 frames up to this one: the frame of 39 ago,
    // in the next hit slot, drops out.
    ippsCopy_32s(sumFrames_[previous].get(), sum, cells);
    ippsAdd_32u(reinterpret_cast<const Ipp32u*>(hits), reinterpret_cast<const Ipp32u*>(sum),
                reinterpret_cast<Ipp32u*>(sum), cells);
    const int dropped = hitSlot_ + 1 == kHitSlots ? 0 : hitSlot_ + 1;
    ippsSub_32s_Sfs(hitFrames_[dropped].get(), sum, sum, cells, 0);
    const Ipp32f* before = alphaFrames_[previous].get();
    Ipp32f* alpha = alphaFrames_[frameWrite_].get();
    for (int i = 0; i < cells; ++i) {
        alpha[i] = hits[i] > 0 ? 1.0f : sum[i] == 0 ? 0.0f : kAlphaDecay * before[i];
    }
}

FrameHandoff::Read FrameImager::Deliver(float* sweep, float* frame, float* alphaFrame, bool* clipped) {
    const FrameHandoff::Read read = handoff_.BeginRead(frameRead_);
    if (read != FrameHandoff::Read::Held) return read;
    const int slot = frameRead_;
    if (clipped) *clipped = slotClipped_[slot];
    if (sweep) {
        ippsCopy_32f(sweepFrames_[slot].get(), sweep, spanBins_);
        ippsLn_32f_A11(sweep, sweep, spanBins_);
        ippsMulC_32f_I(kDbPerLn, sweep, spanBins_);
        ippsAdd_32f(sweep, corrections_, sweep, spanBins_);
    }
    const int width = geometry_.frameWidth;
    // Cells are column-major in the engine; the images the caller gets are row-major.
    const IppiSize columns{kFrameHeight, width};
    const int sourceStep = kFrameHeight * static_cast<int>(sizeof(Ipp32f));
    const int imageStep = width * static_cast<int>(sizeof(Ipp32f));
    if (frame && width > 0) {
        // The sum covers 39 frames but is divided by the 40 hit slots: a
        // level hit by every entry of its column reads 0.975.
        const int cells = geometry_.frameCells;
        ippsConvert_32s32f(sumFrames_[slot].get(), floatFrame_.get(), cells);
        ippsMulC_32f_I(static_cast<float>(1.0 / (double(geometry_.binsPerColumn) * spectraPerFrame_ * kHitSlots)),
                       floatFrame_.get(), cells);
        ippiTranspose_32f_C1R(floatFrame_.get(), sourceStep, frame, imageStep, columns);
    }
    if (alphaFrame && width > 0) {
        ippiTranspose_32f_C1R(alphaFrames_[slot].get(), sourceStep, alphaFrame, imageStep, columns);
    }
    handoff_.EndRead();
    frameRead_ = FrameHandoff::Next(frameRead_);
    return read;
}

}  // namespace qor
