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

// The inputs of a first pass: as they are, or multiplied by a window on the
// way in (conj(x) x window for a conjugated frame).
struct PlainInput {
    const Ipp64fc* x;
    QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V operator()(long i) const { return Vec::Load(x + i); }
};

struct WindowedInput {
    const Ipp64fc* x;
    const Ipp64fc* window;
    QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V operator()(long i) const {
        return TwiddleLoaded<false>(Vec::Load(x + i), Vec::Load(window + i));
    }
};

struct ConjWindowedInput {
    const Ipp64fc* x;
    const Ipp64fc* window;
    QOR_VECTOR_TARGET QOR_ALWAYS_INLINE V operator()(long i) const {
        return TwiddleLoaded<true>(Vec::Load(window + i), Vec::Load(x + i));
    }
};

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

// The DFT of 8 points at stride s: a lone twiddled pass of length 8 and
// the radix-2 last pass in one sweep. Inputs x[q + s i], outputs y[q + s k]
// in order, each through finish.
template <bool Inverse, typename Finish>
QOR_VECTOR_TARGET void LastEightStrided(int s, const Ipp64fc* x, Ipp64fc* y, Finish finish) {
    constexpr double kC = 0.70710678118654752440;
    const V c = Vec::Broadcast(kC), minusC = Vec::Broadcast(-kC);
    const long s1 = s;
    for (long q = 0; q < s1; q += Vec::kComplex) {
        const Ipp64fc* in = x + q;
        const Four e = Butterfly<Inverse>(Vec::Load(in), Vec::Load(in + 2 * s1), Vec::Load(in + 4 * s1),
                                          Vec::Load(in + 6 * s1));
        const Four o = Butterfly<Inverse>(Vec::Load(in + s1), Vec::Load(in + 3 * s1), Vec::Load(in + 5 * s1),
                                          Vec::Load(in + 7 * s1));
        const V o1 = Twiddle<Inverse>(o.y1, c, minusC);       // W8 = c - j c
        const V o2 = RotateQuarter<Inverse>(o.y2);             // W8^2 = -j
        const V o3 = Twiddle<Inverse>(o.y3, minusC, minusC);  // W8^3 = -c - j c
        const V sums[4] = {Vec::Add(e.y0, o.y0), Vec::Add(e.y1, o1), Vec::Add(e.y2, o2), Vec::Add(e.y3, o3)};
        const V differences[4] = {Vec::Sub(e.y0, o.y0), Vec::Sub(e.y1, o1), Vec::Sub(e.y2, o2), Vec::Sub(e.y3, o3)};
        for (int k = 0; k < 4; ++k) {
            Vec::Store(y + q + k * s1, finish(sums[k], q + k * s1));
            Vec::Store(y + q + (k + 4) * s1, finish(differences[k], q + (k + 4) * s1));
        }
    }
}

// The DFT of 16 points at stride s: a lone twiddled pass of length 16 and
// the radix-4 last pass in one sweep, as four butterflies over the inputs
// four apart, the twiddles W16^(n2 k1), and four across their outputs.
template <bool Inverse, typename Finish>
QOR_VECTOR_TARGET void LastSixteenStrided(int s, const Ipp64fc* x, Ipp64fc* y, Finish finish) {
    constexpr double kC = 0.70710678118654752440, kC1 = 0.92387953251128675613, kS1 = 0.38268343236508977173;
    const V c = Vec::Broadcast(kC), minusC = Vec::Broadcast(-kC);
    const V c1 = Vec::Broadcast(kC1), minusC1 = Vec::Broadcast(-kC1);
    const V s1 = Vec::Broadcast(kS1), minusS1 = Vec::Broadcast(-kS1);
    const long st = s;
    for (long q = 0; q < st; q += Vec::kComplex) {
        const Ipp64fc* in = x + q;
        V f[4][4];  // [n2][k1]
        for (int n2 = 0; n2 < 4; ++n2) {
            const Four b = Butterfly<Inverse>(Vec::Load(in + n2 * st), Vec::Load(in + (n2 + 4) * st),
                                              Vec::Load(in + (n2 + 8) * st), Vec::Load(in + (n2 + 12) * st));
            f[n2][0] = b.y0;
            f[n2][1] = b.y1;
            f[n2][2] = b.y2;
            f[n2][3] = b.y3;
        }
        f[1][1] = Twiddle<Inverse>(f[1][1], c1, minusS1);       // W16
        f[1][2] = Twiddle<Inverse>(f[1][2], c, minusC);         // W16^2
        f[1][3] = Twiddle<Inverse>(f[1][3], s1, minusC1);       // W16^3
        f[2][1] = Twiddle<Inverse>(f[2][1], c, minusC);         // W16^2
        f[2][2] = RotateQuarter<Inverse>(f[2][2]);               // W16^4 = -j
        f[2][3] = Twiddle<Inverse>(f[2][3], minusC, minusC);    // W16^6
        f[3][1] = Twiddle<Inverse>(f[3][1], s1, minusC1);       // W16^3
        f[3][2] = Twiddle<Inverse>(f[3][2], minusC, minusC);    // W16^6
        f[3][3] = Twiddle<Inverse>(f[3][3], minusC1, s1);       // W16^9
        for (int k1 = 0; k1 < 4; ++k1) {
            const Four g = Butterfly<Inverse>(f[0][k1], f[1][k1], f[2][k1], f[3][k1]);
            const V out[4] = {g.y0, g.y1, g.y2, g.y3};
            for (int k2 = 0; k2 < 4; ++k2) {
                const long i = q + (k1 + 4 * k2) * st;
                Vec::Store(y + i, finish(out[k2], i));
            }
        }
    }
}

// The last two passes in one sweep, for a lone last twiddled pass of length
// 8 or 16; s a multiple of Vec::kComplex.
QOR_VECTOR_TARGET QOR_ALWAYS_INLINE void LastTwoPasses(int len, int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse,
                                     const Ipp64fc* times) {
    if (times) {
        len == 8 ? LastEightStrided<false>(s, x, y, Times{times}) : LastSixteenStrided<false>(s, x, y, Times{times});
        return;
    }
    const Scaled finish{Vec::Broadcast(scale)};
    if (len == 8) {
        inverse ? LastEightStrided<true>(s, x, y, finish) : LastEightStrided<false>(s, x, y, finish);
    } else {
        inverse ? LastSixteenStrided<true>(s, x, y, finish) : LastSixteenStrided<false>(s, x, y, finish);
    }
}

QOR_VECTOR_TARGET void LastEightPasses(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse,
                                       const Ipp64fc* times) {
    LastTwoPasses(8, s, x, y, scale, inverse, times);
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
    const ConjWindowedInput product{a, w};
    int i = 0;
    for (; i + Vec::kComplex <= length; i += Vec::kComplex) Vec::Store(d + i, product(i));
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
