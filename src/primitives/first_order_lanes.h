// The recursion y[n] = c[n] + r y[n - 1] in lanes. Its one product and one
// sum per sample would make each output wait for the one before, so eight
// stretches of the block run side by side from rest, and each stretch then
// gets r^(i + 1) times the true output before it at its i-th sample. The
// first order filters use it (the audio's de-emphasis, AM's running mean);
// for |r| < 1 only, where the decay never overflows.
#ifndef QOR_PRIMITIVES_FIRST_ORDER_LANES_H
#define QOR_PRIMITIVES_FIRST_ORDER_LANES_H

namespace qor_prim {

constexpr int kRecursionLanes = 8;

// `w` holds c over kRecursionLanes stretches of `stretch` values (the
// output before the block already folded into c[0]) and receives y;
// powers[i] = r^(i + 1) for i < stretch.
inline void RecurseInLanes(double* w, int stretch, double r, const double* powers) {
    double y[kRecursionLanes];
    for (int l = 0; l < kRecursionLanes; ++l) y[l] = w[l * stretch];
    for (int i = 1; i < stretch; ++i) {
        for (int l = 0; l < kRecursionLanes; ++l) {
            y[l] = w[l * stretch + i] + r * y[l];
            w[l * stretch + i] = y[l];
        }
    }
    for (int l = 1; l < kRecursionLanes; ++l) {
        const double before = w[l * stretch - 1];
        double* lane = w + l * stretch;
        for (int i = 0; i < stretch; ++i) lane[i] += powers[i] * before;
    }
}

}  // namespace qor_prim

#endif
