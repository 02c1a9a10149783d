// The passes of the radix-4 Stockham FFT, one set per processor level.
//
// A pass of length n and stride s reads x[q + s (p + k m)] (m = n / 4,
// k = 0..3) and writes y[q + s (4 p + l)], so that the output lands in natural
// order after the last pass without a bit reversal. The twiddles of a pass are
// three arrays of m values, W_n^p, W_n^2p and W_n^3p (W_n = exp(-2 pi j / n)).
#ifndef QOR_PRIMITIVES_FFT_KERNELS_H
#define QOR_PRIMITIVES_FFT_KERNELS_H

#include "ipp_types.h"

namespace qor_prim {

struct FftKernels {
    // A twiddled radix-4 pass, n >= 8.
    void (*radix4)(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* twiddles, bool inverse);
    // The last pass when it has length 4: no twiddles, outputs times scale.
    void (*radix4Last)(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse);
    // The last pass when it has length 2.
    void (*radix2Last)(int s, const Ipp64fc* x, Ipp64fc* y, double scale);
    // d[i] = a[i] x w[i] (x conj(w[i]) for the inverse), the middle twiddles of the large sizes.
    void (*twiddle)(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse);
    // Two twiddled passes in one sweep through memory: (n, s) with twiddles w
    // and (n / 4, 4 s) with twiddles w2, n >= 32. Null where the registers
    // are too few to hold sixteen inputs.
    void (*radix4Twice)(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2,
                        bool inverse);
    // The forward last passes with each output multiplied by h at its index
    // (the product of a fast convolution on the way out). Null where the
    // product is left to a pass of its own.
    void (*radix4LastTimes)(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h);
    void (*radix2LastTimes)(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h);
    // dst[j dstRow + i] = scale x src[i srcRow + j] for i < rows, j < cols:
    // the block transposes of the large sizes' two sweeps.
    void (*transpose)(const Ipp64fc* src, long srcRow, Ipp64fc* dst, long dstRow, int rows, int cols, double scale);
    // d[i] = conj(a[i]) x w[i]: a conjugated frame times its window.
    void (*conjTimes)(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length);
    // a[r width + b] x starts[r] x within[r width + b] for r < rows, b <
    // width (conjugated twiddles for the inverse): the middle twiddles of the
    // large sizes' first sweep, put together from their two tables on the way.
    void (*blockTwiddle)(Ipp64fc* a, const Ipp64fc* starts, const Ipp64fc* within, int rows, int width, bool inverse);
    // The whole transform of 16 points in registers (its one twiddled pass
    // with twiddles w, then the last pass), outputs times scale. Null where
    // the registers are too few.
    void (*whole16)(const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, double scale, bool inverse);
    // A lone last twiddled pass of length 8 (16) and the last pass in one
    // sweep: the DFT of 8 (16) points at stride s, s a multiple of 4.
    // Outputs times scale, or with `times` (forward) times h at their index.
    // Null where the passes run one by one (for 16 points: where the
    // registers are too few, and the spilling would cost more than the sweep).
    void (*lastEight)(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse, const Ipp64fc* times);
    void (*lastSixteen)(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse, const Ipp64fc* times);
    // radix4Twice at stride 1, forward, n >= 64, with each input multiplied
    // by the window on the way in (conj(x) x window with `conjugate`). Null
    // where the window takes a pass of its own.
    void (*radix4TwiceWindowed)(int n, const Ipp64fc* x, const Ipp64fc* window, bool conjugate, Ipp64fc* y,
                                const Ipp64fc* w, const Ipp64fc* w2);
    // The whole transform of 8 points in registers, outputs times scale.
    // Null where the passes serve.
    void (*whole8)(const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse);
};

// The plain block transpose, which the AVX2 level shares.
void TransposeGeneric(const Ipp64fc* src, long srcRow, Ipp64fc* dst, long dstRow, int rows, int cols, double scale);
// The plain conj(a) x w, for the values past the last whole register.
void ConjTimesGeneric(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length);
// The plain middle twiddles, for widths the registers do not divide.
void BlockTwiddleGeneric(Ipp64fc* a, const Ipp64fc* starts, const Ipp64fc* within, int rows, int width, bool inverse);

extern const FftKernels kFftKernelsGeneric;
extern const FftKernels kFftKernelsAvx2;
extern const FftKernels kFftKernelsAvx512;

}  // namespace qor_prim

#endif
