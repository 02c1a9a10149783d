#include "step_bend.h"

#include <cmath>

namespace qorsim {

StepBend::StepBend(int first, int last, const std::function<double(int)>& shape,
                   const std::function<double(double)>& nearestStep)
    : first_(first) {
    for (int k = first; k <= last; ++k) {
        const double v = shape(k);
        distance_.push_back(nearestStep(v) - v);
    }
}

double StepBend::Distance(double k) const {
    const double i = k - first_;
    return i >= 0.0 && i < static_cast<double>(distance_.size()) ? distance_[static_cast<size_t>(i)] : 0.0;
}

double StepBend::At(double x) const {
    const double j = std::floor(x), t = x - j;
    const double r0 = Distance(j - 1), r1 = Distance(j), r2 = Distance(j + 1), r3 = Distance(j + 2);
    return r1 + 0.5 * t * (r2 - r0 + t * (2.0 * r0 - 5.0 * r1 + 4.0 * r2 - r3 + t * (3.0 * (r1 - r2) + r3 - r0)));
}

}  // namespace qorsim
