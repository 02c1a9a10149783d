// Conversion of traces from dBm to millivolts in 50 ohm, in place, for the
// non-logarithmic scales.
#ifndef QOR_TRACE_UNITS_H
#define QOR_TRACE_UNITS_H

namespace qor {

void DbmToMillivolts(float* trace, int length);
void DbmToMillivolts(double* trace, int length);

}  // namespace qor

#endif
