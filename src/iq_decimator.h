// The decimation chain of the streams: each block of 16384 samples at
// 486111.11 samples/s becomes one block of 16384 / D samples (D = 2^order,
// 1 to 128), band-limited to the configured bandwidth, with the unit's
// amplitude response flattened in the taps of the first filter.
//
// Up to D = 8 one 2048-tap filter cuts at half the bandwidth and the block is
// sampled down by D. Above, a fixed 2048-tap anti-alias filter at 25 kHz
// and a sampling down by 8 come first, then a 512-tap filter at half the
// bandwidth on the 60763.89 samples/s left, sampled down by D / 8. Filter
// memory and phases carry over from block to block: consecutive blocks are
// one continuous stream. Used by one thread; allocates nothing after the
// first Process.
#ifndef QOR_IQ_DECIMATOR_H
#define QOR_IQ_DECIMATOR_H

#include <cstdint>
#include <memory>

#include "ipps.h"
#include "smart_array.h"

namespace qor {

class IQDecimator {
public:
    static constexpr int kBlockSamples = 16384;
    static constexpr int kCorrectionBins = 2048;
    // Width of a bin of the correction table, Hz: 486111.11 / 2048.
    static constexpr double kCorrectionBinHz = 237.358935546875;

    // `bandwidth` as a fraction of 486111.11 Hz.
    IQDecimator(int order, double bandwidth);

    // `table`: dB per bin of the 2048-point FFT of the first filter, in the
    // FFT's natural order. Once, before the first Process.
    void ApplyCorrections(const double* table);
    // `source` 16384 samples, `destination` 16384 / D; they may be the same.
    void Process(const Ipp64fc* source, Ipp64fc* destination);

private:
    struct Stage {
        Stage(int tapCount, double cutoff);
        // Makes the filter state on the taps as they stand, zero delay line.
        void Init();

        int tapCount;
        smart_array<Ipp64fc> taps;
        smart_array<Ipp8u> stateMemory;
        IppsFIRState_64fc* state = nullptr;
    };

    const int order;
    Stage first;
    std::unique_ptr<Stage> second;  // above D = 8
    int firstPhase = 0;
    int secondPhase = 0;
    static constexpr int kAfterFirst = kBlockSamples / 8;
    smart_array<Ipp64fc> between;  // the first stage's output, above D = 8
};

}  // namespace qor

#endif
