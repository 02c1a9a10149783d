#include "fft_twiddles.h"

#include <cmath>

namespace qor_prim {

namespace {

int FineBits(int order) { return (order + 1) / 2; }

}  // namespace

size_t TwiddleSource::ScratchBytes(int order) {
    const size_t fine = size_t{1} << FineBits(order);
    const size_t coarse = size_t{1} << (order - FineBits(order));
    return (fine + coarse) * sizeof(Entry);
}

TwiddleSource::TwiddleSource(int order, void* scratch)
    : fineBits_(FineBits(order)), fineMask_((1LL << FineBits(order)) - 1) {
    const long long n = 1LL << order;
    const long long fineCount = 1LL << fineBits_;
    const long long coarseCount = n >> fineBits_;
    Entry* fine = static_cast<Entry*>(scratch);
    Entry* coarse = fine + fineCount;
    const long double step = -6.283185307179586476925286766559L / static_cast<long double>(n);
    for (long long i = 0; i < fineCount; ++i) fine[i] = {std::cos(step * i), std::sin(step * i)};
    for (long long i = 0; i < coarseCount; ++i) {
        const long double a = step * static_cast<long double>(i * fineCount);
        coarse[i] = {std::cos(a), std::sin(a)};
    }
    fine_ = fine;
    coarse_ = coarse;
}

Ipp64fc TwiddleSource::operator()(long long k) const {
    const Entry& c = coarse_[k >> fineBits_];
    const Entry& f = fine_[k & fineMask_];
    return {static_cast<double>(c.re * f.re - c.im * f.im), static_cast<double>(c.re * f.im + c.im * f.re)};
}

}  // namespace qor_prim
