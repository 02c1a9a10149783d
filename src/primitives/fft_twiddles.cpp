#include "fft_twiddles.h"

#include <cmath>

namespace qor_prim {

namespace {

struct LongComplex {
    long double re, im;
};

// Orders below 3 have no eighth of the circle to reflect: their few twiddles are computed alike.
constexpr int kMinOrder = 3;

int EffectiveOrder(int order) { return order < kMinOrder ? kMinOrder : order; }
int FineBits(int order) { return (order + 1) / 2; }
long long OctantCount(int order) { return (1LL << order) / 8 + 1; }

}  // namespace

size_t TwiddleSource::ScratchBytes(int order) {
    order = EffectiveOrder(order);
    const size_t fine = size_t{1} << FineBits(order);
    const size_t coarse = (size_t{1} << (order - FineBits(order))) / 8 + 1;
    return (fine + coarse) * sizeof(LongComplex) + static_cast<size_t>(OctantCount(order)) * sizeof(Ipp64fc);
}

TwiddleSource::TwiddleSource(int order, void* scratch) {
    // A smaller N takes every (8 / N)-th twiddle of N = 8.
    const int shift = EffectiveOrder(order) - order;
    order = EffectiveOrder(order);
    const long long n = 1LL << order;
    const int fineBits = FineBits(order);
    const long long fineCount = 1LL << fineBits;
    const long long octant = OctantCount(order);
    const long long coarseCount = (octant >> fineBits) + 1;
    auto* fine = static_cast<LongComplex*>(scratch);
    LongComplex* coarse = fine + fineCount;
    auto* table = reinterpret_cast<Ipp64fc*>(coarse + ((n >> fineBits) / 8 + 1));
    const long double step = -6.283185307179586476925286766559L / static_cast<long double>(n);
    for (long long i = 0; i < fineCount; ++i) fine[i] = {std::cos(step * i), std::sin(step * i)};
    for (long long i = 0; i < coarseCount; ++i) {
        const long double a = step * static_cast<long double>(i * fineCount);
        coarse[i] = {std::cos(a), std::sin(a)};
    }
    for (long long k = 0; k < octant; ++k) {
        const LongComplex& c = coarse[k >> fineBits];
        const LongComplex& f = fine[k & (fineCount - 1)];
        table[k] = {static_cast<double>(c.re * f.re - c.im * f.im), static_cast<double>(c.re * f.im + c.im * f.re)};
    }
    quarter_ = n / 4;
    octant_ = table;
    shift_ = shift;
}

Ipp64fc TwiddleSource::operator()(long long k) const {
    k <<= shift_;
    const long long quadrant = k / quarter_, r = k % quarter_;
    // Within the quarter: the first eighth as computed, the second reflected
    // about 45 degrees: W^r = (-im, -re) of W^(N/4 - r).
    Ipp64fc w;
    if (r <= quarter_ / 2) {
        w = octant_[r];
    } else {
        const Ipp64fc m = octant_[quarter_ - r];
        w = {-m.im, -m.re};
    }
    // Each quarter turn multiplies by -j: (a, b) -> (b, -a).
    for (long long q = 0; q < quadrant; ++q) w = {w.im, -w.re};
    return w;
}

}  // namespace qor_prim
