// The frames of the real-time mode: every spectrum of a frame time condensed
// into the frame's sweep (the larger or the mean power of each bin, by the
// detector) and into a density image of frameWidth x 256 cells, the
// persistence image: how often the level of a column's bins fell into each
// of 256 rows, summed over the last 39 frames. Beside it the alpha image,
// which fades the cells no longer hit: 1 where the present frame hit,
// then 0.9003 per frame down to about 0.0185, and 0 once the 39-frame sum
// has forgotten the cell.
//
// The processing thread adds spectra (AddSpectrum) and finishes a frame
// every `spectraPerFrame` of them; the image is drawn once per frame, from
// the levels of the frame kept as a matrix (one row of `spectraPerFrame`
// levels per bin), so that the per-spectrum path stays a few vector
// operations and a strided store. The application's thread takes frames in
// sequence (Deliver); the two meet only in the FrameHandoff of the 32
// delivery slots. The corrections are written before the first spectrum
// and constant after it.
#ifndef QOR_FRAME_IMAGING_H
#define QOR_FRAME_IMAGING_H

#include <cstdint>
#include <vector>

#include "frame_handoff.h"
#include "ipps.h"
#include "smart_array.h"

namespace qor {

constexpr int32_t kFrameHeight = 256;

// The bins of a span, `bins` truncated from the span, rounded so that
// halving them until they are below 1024 is exact.
int32_t RoundSpanBins(int32_t bins);

struct FrameGeometry {
    int32_t frameWidth = 0;     // columns, at most 1023
    int32_t binsPerColumn = 1;  // a power of two
    int32_t frameCells = 0;     // frameWidth x 256
};

FrameGeometry FrameGeometryFor(int32_t spanBins);

// How levels become rows, fixed with the mode.
struct FrameScale {
    bool logScale = true;      // rows in dB; else in millivolts on 50 ohm
    double refLevel = -20.0;   // dBm: row 256 in dB, row 255 in mV
    double frameScale = 100.0; // dB the 256 rows cover
    int32_t detector = 0;      // 1: the sweep is the mean power, else the largest
};

class FrameImager {
public:
    // `corrections` (dB) and `voltageRatios` (10^(dB/20)) of each span bin
    // stay the caller's; filled before the first spectrum.
    FrameImager(int32_t spanBins, int32_t spectraPerFrame, const FrameScale& scale, const float* corrections,
                const float* voltageRatios);

    const FrameGeometry& Geometry() const { return geometry_; }

    // ---- The processing thread -----------------------------------------------
    // Takes the power of the span bins of one spectrum (overwritten) into the
    // frame; true when that finished a frame. `clipped`: the spectrum's
    // samples came from a clipping converter, and so the frame did.
    bool AddSpectrum(Ipp32f* power, bool clipped = false);

    // ---- The application's thread --------------------------------------------
    // The next frame in sequence, each output skipped when null: the sweep in
    // dBm (spanBins), the persistence and alpha images (row-major, row 0 the
    // lowest level). Waits for the frame, except once the unit failed (Fail):
    // then a frame not built yet is not waited for and nothing is written.
    // `*clipped` (when given and the frame was delivered): some spectrum of
    // the frame was.
    FrameHandoff::Read Deliver(float* sweep, float* frame, float* alphaFrame, bool* clipped = nullptr);

    // Wakes a waiting Deliver for good.
    void Shut() { handoff_.Shut(); }
    void Fail() { handoff_.Fail(); }

private:
    static constexpr int kHitSlots = 40;  // the frames of the sum, and the one that drops out

    void FinishFrame();
    void MapLevelsToRows();
    void CountHits(Ipp32s* hits);
    void Persist(int previous);

    const int32_t spanBins_;
    const int32_t spectraPerFrame_;
    const FrameScale scale_;
    const FrameGeometry geometry_;
    const float* corrections_;
    const float* voltageRatios_;
    FrameHandoff handoff_;

    // The processing thread's.
    int32_t spectrumCount_ = 0;
    int32_t frameWrite_ = 0;
    int32_t hitSlot_ = 0;
    bool frameClipped_ = false;
    smart_array<Ipp32f> accumulator_;    // spanBins
    smart_array<Ipp32f> spectraMatrix_;  // bin b, spectrum s at b x spectraPerFrame + s
    smart_array<Ipp32s> rowMatrix_;      // the same as rows 0..255
    std::vector<smart_array<Ipp32s>> hitFrames_;  // hits of the last 40 frames, column-major cells
    // Per delivery slot, written by the thread, read by the caller (handoff).
    std::vector<smart_array<Ipp32s>> sumFrames_;
    std::vector<smart_array<Ipp32f>> alphaFrames_;
    std::vector<smart_array<Ipp32f>> sweepFrames_;  // power, not in dB yet
    bool slotClipped_[FrameHandoff::kSlots] = {};

    // The application's thread's.
    int32_t frameRead_ = 0;
    smart_array<Ipp32f> floatFrame_;
};

}  // namespace qor

#endif
