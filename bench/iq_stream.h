// The I/Q stream as the benchmarks set it up: a decimation D (1 to 128, a
// power of two) with its widest bandwidth, and through the C API the mode
// started on a unit and read one output block (16384 / D samples, 16384 at
// the instrument's rate) per get.
#ifndef QOR_BENCH_IQ_STREAM_H
#define QOR_BENCH_IQ_STREAM_H

#include <vector>

#include "qor_api.h"

namespace qorbench {

constexpr int kIqInputBlock = 16384;

// log2 of the decimation.
int DecimationOrder(int decimation);
// Hz.
double WidestBandwidth(int decimation);

// Configures the I/Q mode at 1 GHz with the widest bandwidth of `decimation` and starts it.
qorStatus StartIq(int device, int decimation);

class IqBlockReader {
public:
    IqBlockReader(int device, int decimation);
    // Waits for the next block; `purge` first drops what is queued, and a pending loss with it.
    qorStatus Next(bool purge = false);
    // Gets whose loss flag was raised.
    int LossFlags() const { return lossFlags; }

private:
    const int device;
    std::vector<float> iq;  // interleaved I, Q
    int lossFlags = 0;
};

}  // namespace qorbench

#endif
