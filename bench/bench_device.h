// The unit a sweep benchmark measures on: a unit of the virtual instrument's
// default bench, shared by every benchmark that uses it.
#ifndef QOR_BENCH_BENCH_DEVICE_H
#define QOR_BENCH_BENCH_DEVICE_H

namespace qorbench {

// The device of the unit with this serial: the one already open (another
// benchmark may hold it), else opened now; -1 without an instrument.
int BenchDevice(unsigned serial);

}  // namespace qorbench

#endif
