// The logarithm written once for any register width. A kernel file defines
// QOR_VECTOR_TARGET and a struct LogVec of register operations on doubles
// (T, with its lane choices as Mask), then includes this file: everything
// here is private to that file.
//
// The argument is split into 2^k times m with m between sqrt(1/2) and
// sqrt(2), and log(m) = log(1 + f) comes from the odd series of
// s = f / (2 + f), as in the classic scalar method, to within one ulp. Only
// for normal, positive, finite arguments; the callers take the others apart.
#ifndef QOR_VECTOR_TARGET
#error "define QOR_VECTOR_TARGET and LogVec before including log_vector.h"
#endif

namespace qor_prim {
namespace {

QOR_VECTOR_TARGET QOR_ALWAYS_INLINE LogVec::T Log(LogVec::T x) {
    using V = LogVec;
    // Exponent as a double: the biased exponent placed in the mantissa of 2^52.
    const V::T two52 = V::Set(4503599627370496.0);
    V::T k = V::Sub(V::Or(V::ShiftExponentDown(x), two52), two52);
    k = V::Sub(k, V::Set(1023.0));
    V::T m = V::Or(V::MantissaOf(x), V::Set(1.0));
    const V::Mask big = V::Greater(m, V::Set(1.4142135623730951));
    m = V::Select(big, V::Mul(m, V::Set(0.5)), m);
    k = V::Select(big, V::Add(k, V::Set(1.0)), k);

    const V::T f = V::Sub(m, V::Set(1.0));
    const V::T s = V::Div(f, V::Add(V::Set(2.0), f));
    const V::T z = V::Mul(s, s);
    const V::T w = V::Mul(z, z);
    V::T t1 = V::Fma(w, V::Set(1.531383769920937332e-01), V::Set(2.222219843214978396e-01));
    t1 = V::Fma(w, t1, V::Set(3.999999999940941908e-01));
    t1 = V::Mul(w, t1);
    V::T t2 = V::Fma(w, V::Set(1.479819860511658591e-01), V::Set(1.818357216161805012e-01));
    t2 = V::Fma(w, t2, V::Set(2.857142874366239149e-01));
    t2 = V::Fma(w, t2, V::Set(6.666666666666735130e-01));
    t2 = V::Mul(z, t2);
    const V::T r = V::Add(t1, t2);
    const V::T hfsq = V::Mul(V::Set(0.5), V::Mul(f, f));
    // k ln2_hi - ((hfsq - (s (hfsq + R) + k ln2_lo)) - f)
    const V::T inner = V::Fma(k, V::Set(1.90821492927058770002e-10), V::Mul(s, V::Add(hfsq, r)));
    const V::T tail = V::Sub(V::Sub(hfsq, inner), f);
    return V::Fms(k, V::Set(6.93147180369123816490e-01), tail);
}

}  // namespace
}  // namespace qor_prim
