// Holding a value to its range: the one rule of every clamp that reports
// whether it had to clamp.
#ifndef QOR_HOLD_H
#define QOR_HOLD_H

namespace qor {

// Holds `value` to low..high; a NaN goes to `low`. True when it had to.
template <typename T>
bool Hold(T& value, T low, T high) {
    if (value >= low && value <= high) return false;
    value = value > high ? high : low;
    return true;
}

}  // namespace qor

#endif
