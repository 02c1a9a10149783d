// A term that a unit's calibration keeps in coarse steps on a grid lies on
// those steps at the grid points: its smooth shape, bent by a smooth curve
// (Catmull-Rom) through the distance from the shape to the nearest step at
// each grid point. The bend is less than half a step anywhere.
#ifndef QOR_SIM_STEP_BEND_H
#define QOR_SIM_STEP_BEND_H

#include <functional>
#include <vector>

namespace qorsim {

class StepBend {
public:
    StepBend() = default;
    // Distances at grid points first to last, from the shape at a grid point
    // and the nearest stored step of a value; beyond them the bend fades to
    // nothing within one point.
    StepBend(int first, int last, const std::function<double(int)>& shape,
             const std::function<double(double)>& nearestStep);

    // The bend at x, in grid points.
    double At(double x) const;

private:
    double Distance(double k) const;

    int first_ = 0;
    std::vector<double> distance_;
};

}  // namespace qorsim

#endif
