// The complex FFT behind the ippsFFT primitives, shared with the fast FIR.
//
// Up to 2^16 points, radix-4 Stockham passes (one radix-2 pass last for odd
// orders) ping-pong between the destination and one scratch array. Above,
// the data no longer fit the caches and the transform is split in two
// sweeps of short transforms N = N1 x N2: blocks of eight columns are
// gathered, transformed together, multiplied by the middle twiddles and put
// back; then each row is transformed and scattered to its output columns.
// Each sweep reads and writes memory once, instead of once per pass.
#ifndef QOR_PRIMITIVES_FFT_CORE_H
#define QOR_PRIMITIVES_FFT_CORE_H

#include <cstddef>
#include <cstdint>

#include "fft_kernels.h"
#include "ipp_types.h"

namespace qor_prim {

constexpr int kFftMaxOrder = 24;

// A Stockham transform of 2^order points with its twiddles.
struct StockhamPlan {
    int order;
    const Ipp64fc* twiddles;
};

// Memory of a transform of 2^order points, in bytes, alignment slack included.
struct FftSizes {
    size_t spec;
    size_t init;
    size_t work;
};
FftSizes FftMemorySizes(int order);

}  // namespace qor_prim

// The FFT setup block: read only after initialisation, so one serves any
// number of threads, each with its own work buffer.
struct IppsFFTSpec_C_64fc {
    uint64_t magic;
    int order;
    double forwardScale;
    double inverseScale;
    const qor_prim::FftKernels* kernels;
    bool split;                      // the two-sweep scheme of the large sizes
    qor_prim::StockhamPlan whole;    // the whole transform when not split
    qor_prim::StockhamPlan columns;  // N1 points, the first sweep
    qor_prim::StockhamPlan rows;     // N2 points, the second sweep
    // The middle twiddles W_N^(n2 k1) of a column n2 = c + b, c the first
    // column of its block of the first sweep, as W_N^(c k1) W_N^(b k1):
    const Ipp64fc* blockStarts;      // W_N^(c k1) at (c / block) N1 + k1
    const Ipp64fc* inBlock;          // W_N^(b k1) at k1 x block + b
};

namespace qor_prim {

// Builds a setup block in `specMemory` (FftMemorySizes(order).spec bytes),
// using `initMemory` (.init bytes) as scratch; null `initMemory` is refused by the caller.
IppsFFTSpec_C_64fc* FftBuild(int order, double forwardScale, double inverseScale, void* specMemory, void* initMemory);

// Transform of src into dst (the same array allowed) with work (.work bytes).
void FftRun(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, bool inverse);

// The same with an explicit scale instead of the setup block's.
void FftRunScaled(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, bool inverse,
                  double scale);

// The forward transform, unscaled, with each output multiplied by h at its
// index (h and dst not the same array).
void FftRunTimes(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, const Ipp64fc* h);

// The forward transform of src x window (complex products, element by
// element; conj(src) x window when `conjugate`), with the setup block's
// scale; the large sizes take the products on the way into their first
// sweep instead of in a pass of their own.
void FftRunWindowed(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, const Ipp64fc* window, bool conjugate,
                    Ipp64fc* dst, void* work);

// The same transform's power, |X[k]|^2, with its halves swapped: X[k] at
// (k + N / 2) mod N, DC in the middle. `scratch` holds N complex values for
// the sizes that need them. The large sizes never store the transform.
void FftRunWindowedPower(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, const Ipp64fc* window, bool conjugate,
                         Ipp64fc* scratch, double* power, void* work);

// The transform of 2^order points on the tables of a larger unsplit one,
// whose order exceeds it by an even number: the passes of the shorter
// transform are the later passes of the larger.
void FftRunShorter(const IppsFFTSpec_C_64fc& spec, int order, const Ipp64fc* src, Ipp64fc* dst, void* work,
                   bool inverse, double scale);

constexpr uint64_t kFftMagic = 0x71FF7C64A11C0DE5ULL;

}  // namespace qor_prim

#endif
