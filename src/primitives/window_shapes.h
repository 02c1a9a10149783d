// Window shapes shared by the window primitive and the FIR design.
#ifndef QOR_PRIMITIVES_WINDOW_SHAPES_H
#define QOR_PRIMITIVES_WINDOW_SHAPES_H

#include <cmath>

namespace qor_prim {

constexpr double kPi = 3.141592653589793238462643383279502884;

// The Blackman family: (alpha + 1) / 2 - 0.5 cos(2 pi n / (N - 1)) - (alpha / 2) cos(4 pi n / (N - 1)).
inline double BlackmanPoint(double alpha, int n, int count) {
    const double x = 2.0 * kPi * n / (count - 1);
    return (alpha + 1.0) / 2.0 - 0.5 * std::cos(x) - (alpha / 2.0) * std::cos(2.0 * x);
}

}  // namespace qor_prim

#endif
