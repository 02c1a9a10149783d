// The FFT passes in plain C++, for processors below AVX2.
#include "fft_kernels.h"

namespace qor_prim {

namespace {

inline Ipp64fc Add(Ipp64fc a, Ipp64fc b) { return {a.re + b.re, a.im + b.im}; }
inline Ipp64fc Sub(Ipp64fc a, Ipp64fc b) { return {a.re - b.re, a.im - b.im}; }
inline Ipp64fc Scale(Ipp64fc a, double s) { return {a.re * s, a.im * s}; }

template <bool Inverse>
inline Ipp64fc Twiddle(Ipp64fc a, Ipp64fc w) {
    if (Inverse) return {a.re * w.re + a.im * w.im, a.im * w.re - a.re * w.im};
    return {a.re * w.re - a.im * w.im, a.im * w.re + a.re * w.im};
}

// -j u forward, +j u inverse.
template <bool Inverse>
inline Ipp64fc RotateQuarter(Ipp64fc u) {
    if (Inverse) return {-u.im, u.re};
    return {u.im, -u.re};
}

template <bool Inverse>
void Radix4(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    const long sm = static_cast<long>(s) * m;
    for (int p = 0; p < m; ++p) {
        const Ipp64fc w1 = w[p], w2 = w[m + p], w3 = w[2 * m + p];
        const Ipp64fc* xp = x + static_cast<long>(s) * p;
        Ipp64fc* yp = y + 4L * s * p;
        for (int q = 0; q < s; ++q) {
            const Ipp64fc a = xp[q], b = xp[q + sm], c = xp[q + 2 * sm], d = xp[q + 3 * sm];
            const Ipp64fc t0 = Add(a, c), t1 = Sub(a, c), t2 = Add(b, d);
            const Ipp64fc t3 = RotateQuarter<Inverse>(Sub(b, d));
            yp[q] = Add(t0, t2);
            yp[q + s] = Twiddle<Inverse>(Add(t1, t3), w1);
            yp[q + 2 * s] = Twiddle<Inverse>(Sub(t0, t2), w2);
            yp[q + 3 * s] = Twiddle<Inverse>(Sub(t1, t3), w3);
        }
    }
}

template <bool Inverse>
void Radix4Last(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    for (int q = 0; q < s; ++q) {
        const Ipp64fc a = x[q], b = x[q + s], c = x[q + 2 * s], d = x[q + 3 * s];
        const Ipp64fc t0 = Add(a, c), t1 = Sub(a, c), t2 = Add(b, d);
        const Ipp64fc t3 = RotateQuarter<Inverse>(Sub(b, d));
        y[q] = Scale(Add(t0, t2), scale);
        y[q + s] = Scale(Add(t1, t3), scale);
        y[q + 2 * s] = Scale(Sub(t0, t2), scale);
        y[q + 3 * s] = Scale(Sub(t1, t3), scale);
    }
}

void Radix4Pass(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, bool inverse) {
    inverse ? Radix4<true>(n, s, x, y, w) : Radix4<false>(n, s, x, y, w);
}

void Radix4LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    inverse ? Radix4Last<true>(s, x, y, scale) : Radix4Last<false>(s, x, y, scale);
}

void Radix2LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    for (int q = 0; q < s; ++q) {
        const Ipp64fc a = x[q], b = x[q + s];
        y[q] = Scale(Add(a, b), scale);
        y[q + s] = Scale(Sub(a, b), scale);
    }
}

void TwiddleMultiply(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    if (inverse) {
        for (int i = 0; i < length; ++i) d[i] = Twiddle<true>(a[i], w[i]);
    } else {
        for (int i = 0; i < length; ++i) d[i] = Twiddle<false>(a[i], w[i]);
    }
}

}  // namespace

void ConjTimesGeneric(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length) {
    for (int i = 0; i < length; ++i) d[i] = Twiddle<true>(w[i], a[i]);
}

void BlockTwiddleGeneric(Ipp64fc* a, const Ipp64fc* starts, const Ipp64fc* within, int rows, int width, bool inverse) {
    for (int r = 0; r < rows; ++r) {
        for (int b = 0; b < width; ++b) {
            Ipp64fc& v = a[r * width + b];
            const Ipp64fc w = Twiddle<false>(within[r * width + b], starts[r]);
            v = inverse ? Twiddle<true>(v, w) : Twiddle<false>(v, w);
        }
    }
}

void TransposeGeneric(const Ipp64fc* src, long srcRow, Ipp64fc* dst, long dstRow, int rows, int cols, double scale) {
    for (int i = 0; i < rows; ++i) {
        const Ipp64fc* row = src + i * srcRow;
        for (int j = 0; j < cols; ++j) dst[j * dstRow + i] = Scale(row[j], scale);
    }
}

const FftKernels kFftKernelsGeneric = {Radix4Pass,       Radix4LastPass,      Radix2LastPass, TwiddleMultiply,
                                       nullptr,          nullptr,             nullptr,        TransposeGeneric,
                                       ConjTimesGeneric, BlockTwiddleGeneric, nullptr,        nullptr,
                                       nullptr,          nullptr,             nullptr};

}  // namespace qor_prim
