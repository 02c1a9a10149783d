// The FFT passes written once for any register width. A kernel file defines
// QOR_VECTOR_TARGET (the target attribute of its instruction set) and a
// struct Vec of the operations on a register of Vec::kComplex complex
// doubles, then includes this file: everything here is private to that file.
//
// A pass of length n and stride s reads x[q + s (p + k m)] (m = n / 4) and
// writes y[q + s (4 p + l)]; the strided forms take Vec::kComplex values of q
// at a time, so s must be a multiple of it.
#ifndef QOR_VECTOR_TARGET
#error "define QOR_VECTOR_TARGET and Vec before including fft_vector_passes.h"
#endif

namespace qor_prim {
namespace {

using V = Vec::T;

// v x (wr + j wi) with wr, wi broadcast over each complex; conj(w) for the inverse.
template <bool Inverse>
QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V Twiddle(V v, V wr, V wi) {
    const V cross = Vec::Mul(Vec::SwapParts(v), wi);
    return Inverse ? Vec::FmSubAdd(v, wr, cross) : Vec::FmAddSub(v, wr, cross);
}

// v x w for w loaded as complex values (conj(w) for the inverse).
template <bool Inverse>
QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V TwiddleLoaded(V v, V w) {
    return Twiddle<Inverse>(v, Vec::RealParts(w), Vec::ImagParts(w));
}

// -j u forward, +j u inverse.
template <bool Inverse>
QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V RotateQuarter(V u) {
    return Vec::NegateImag(Vec::SwapParts(u), !Inverse);
}

struct Four {
    V y0, y1, y2, y3;
};

template <bool Inverse>
QOR_VECTOR_TARGET QOR_ALWAYS_INLINE Four Butterfly(V a, V b, V c, V d) {
    const V t0 = Vec::Add(a, c), t1 = Vec::Sub(a, c);
    const V t2 = Vec::Add(b, d), t3 = RotateQuarter<Inverse>(Vec::Sub(b, d));
    return {Vec::Add(t0, t2), Vec::Add(t1, t3), Vec::Sub(t0, t2), Vec::Sub(t1, t3)};
}

// Twiddled passes after the first: one twiddle per p, broadcast.
template <bool Inverse>
QOR_VECTOR_TARGET void Radix4Strided(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    const long sm = static_cast<long>(s) * m;
    for (int p = 0; p < m; ++p) {
        const V w1r = Vec::Broadcast(w[p].re), w1i = Vec::Broadcast(w[p].im);
        const V w2r = Vec::Broadcast(w[m + p].re), w2i = Vec::Broadcast(w[m + p].im);
        const V w3r = Vec::Broadcast(w[2 * m + p].re), w3i = Vec::Broadcast(w[2 * m + p].im);
        const Ipp64fc* xp = x + static_cast<long>(s) * p;
        Ipp64fc* yp = y + 4L * s * p;
        for (int q = 0; q < s; q += Vec::kComplex) {
            const Four f = Butterfly<Inverse>(Vec::Load(xp + q), Vec::Load(xp + q + sm), Vec::Load(xp + q + 2 * sm),
                                              Vec::Load(xp + q + 3 * sm));
            Vec::Store(yp + q, f.y0);
            Vec::Store(yp + q + s, Twiddle<Inverse>(f.y1, w1r, w1i));
            Vec::Store(yp + q + 2 * s, Twiddle<Inverse>(f.y2, w2r, w2i));
            Vec::Store(yp + q + 3 * s, Twiddle<Inverse>(f.y3, w3r, w3i));
        }
    }
}

// What the last pass does to each output before it stores it: times a
// scale, or times the value of h at the output's index (the product of a
// fast convolution on the way out of the forward transform).
struct Scaled {
    V k;
    QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V operator()(V v, long) const { return Vec::Mul(v, k); }
};

struct Times {
    const Ipp64fc* h;
    QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V operator()(V v, long i) const { return TwiddleLoaded<false>(v, Vec::Load(h + i)); }
};

// The last pass when it has length 4: no twiddles.
template <bool Inverse, typename Finish>
QOR_VECTOR_TARGET void Radix4LastStrided(int s, const Ipp64fc* x, Ipp64fc* y, Finish finish) {
    for (int q = 0; q < s; q += Vec::kComplex) {
        const Four f = Butterfly<Inverse>(Vec::Load(x + q), Vec::Load(x + q + s), Vec::Load(x + q + 2 * s),
                                          Vec::Load(x + q + 3 * s));
        Vec::Store(y + q, finish(f.y0, q));
        Vec::Store(y + q + s, finish(f.y1, q + s));
        Vec::Store(y + q + 2 * s, finish(f.y2, q + 2 * s));
        Vec::Store(y + q + 3 * s, finish(f.y3, q + 3 * s));
    }
}

// The last pass when it has length 2.
template <typename Finish>
QOR_VECTOR_TARGET void Radix2LastStrided(int s, const Ipp64fc* x, Ipp64fc* y, Finish finish) {
    for (int q = 0; q < s; q += Vec::kComplex) {
        const V a = Vec::Load(x + q), b = Vec::Load(x + q + s);
        Vec::Store(y + q, finish(Vec::Add(a, b), q));
        Vec::Store(y + q + s, finish(Vec::Sub(a, b), q + s));
    }
}

// The forward last passes with the product, for strides of whole registers.
QOR_VECTOR_TARGET void Radix4LastTimes(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h) {
    Radix4LastStrided<false>(s, x, y, Times{h});
}

QOR_VECTOR_TARGET void Radix2LastTimes(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h) {
    Radix2LastStrided(s, x, y, Times{h});
}

// d[i] = a[i] x w[i] (x conj(w[i]) for the inverse) for the whole registers;
// returns how many values that covered.
QOR_VECTOR_TARGET int TwiddleMultiplyWhole(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    int i = 0;
    for (; i + Vec::kComplex <= length; i += Vec::kComplex) {
        const V v = Vec::Load(a + i), t = Vec::Load(w + i);
        Vec::Store(d + i, inverse ? TwiddleLoaded<true>(v, t) : TwiddleLoaded<false>(v, t));
    }
    return i;
}

// d[i] = conj(a[i]) x w[i], which is w[i] x conj(a[i]).
QOR_VECTOR_TARGET void ConjTimes(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length) {
    int i = 0;
    for (; i + Vec::kComplex <= length; i += Vec::kComplex) {
        Vec::Store(d + i, TwiddleLoaded<true>(Vec::Load(w + i), Vec::Load(a + i)));
    }
    if (i < length) ConjTimesGeneric(a + i, w + i, d + i, length - i);
}

// The middle twiddles of a block of the large sizes' first sweep: each row's
// start broadcast times the row's twiddles within the block, then times a.
template <bool Inverse>
QOR_VECTOR_TARGET void BlockTwiddleRows(Ipp64fc* a, const Ipp64fc* starts, const Ipp64fc* within, int rows,
                                        int width) {
    for (int r = 0; r < rows; ++r) {
        const V sr = Vec::Broadcast(starts[r].re), si = Vec::Broadcast(starts[r].im);
        for (int b = r * width; b < (r + 1) * width; b += Vec::kComplex) {
            const V w = Twiddle<false>(Vec::Load(within + b), sr, si);
            Vec::Store(a + b, TwiddleLoaded<Inverse>(Vec::Load(a + b), w));
        }
    }
}

QOR_VECTOR_TARGET void BlockTwiddle(Ipp64fc* a, const Ipp64fc* starts, const Ipp64fc* within, int rows, int width,
                                    bool inverse) {
    if (width % Vec::kComplex != 0) {
        BlockTwiddleGeneric(a, starts, within, rows, width, inverse);
    } else if (inverse) {
        BlockTwiddleRows<true>(a, starts, within, rows, width);
    } else {
        BlockTwiddleRows<false>(a, starts, within, rows, width);
    }
}

}  // namespace
}  // namespace qor_prim
