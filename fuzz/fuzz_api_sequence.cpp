// The C API driven by the fuzzer's bytes on the virtual instrument: any
// sequence of settings, starts, gets, aborts and closes on two units, with
// values from the edges of every type, returns a status and leaves the
// library usable. Each byte picks a call; the bytes after it its arguments.
// Settings that would make one input run for seconds (sub-kHz RBWs, spans of
// GHz) are left out: an input must take milliseconds.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "qor_api.h"

namespace {

constexpr int kSerials[2] = {12000002, 14000004};  // a unit of each family on the default bench
int devices[2] = {-1, -1};

class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool Empty() const { return at_ >= size_; }
    uint8_t Next() { return at_ < size_ ? data_[at_++] : 0; }
    int Int() {
        static const int edges[] = {std::numeric_limits<int>::min(), -1, 0, 1, 2, 3, 4, 8, 128, 4096,
                                    std::numeric_limits<int>::max()};
        const uint8_t b = Next();
        return b < 128 ? edges[b % (sizeof edges / sizeof *edges)] : b - 192;
    }
    // A value from `lo` to `hi`, or one of the edges of a double.
    double Real(double lo, double hi) {
        static const double edges[] = {std::nan(""), INFINITY, -INFINITY, -0.0, 5e-324, 1e308, -1e308, -1.0, 0.0};
        const uint8_t b = Next();
        if (b < 16) return edges[b % (sizeof edges / sizeof *edges)];
        return lo + (hi - lo) * (Next() | Next() << 8) / 65535.0;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

void EnsureOpen(int unit) {
    if (devices[unit] >= 0) return;
    int device = -1;
    if (qorOpenDeviceBySerialNumber(&device, kSerials[unit]) == qorNoError) devices[unit] = device;
}

void Get(int device, Bytes& in) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    std::vector<float> min, max;
    switch (in.Next() % 4) {
        case 0:
            if (qorQuerySweepInfo(device, &length, &start, &bin) != qorNoError || length <= 0) return;
            min.resize(static_cast<size_t>(length));
            max.resize(min.size());
            qorGetSweep_32f(device, min.data(), max.data());
            return;
        case 1: {
            if (qorQuerySweepInfo(device, &length, &start, &bin) != qorNoError || length <= 0) return;
            min.resize(static_cast<size_t>(length));
            max.resize(min.size());
            int from = 0, to = 0;
            qorGetPartialSweep_32f(device, min.data(), max.data(), &from, &to);
            return;
        }
        default: {
            const int count = 1 + in.Next() * 8;
            std::vector<float> iq(2 * static_cast<size_t>(count));
            IQPacket packet{iq.data(), count, in.Next() & 1, 0, 0, 0, 0};
            qorGetIQData(device, &packet);
            return;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("QOR_D2XX_LIBRARY", QOR_SIM_LIBRARY, 0);
    setenv("XDG_DATA_HOME", "/tmp/qor_fuzz_data", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in(data, size);
    for (int call = 0; call < 24 && !in.Empty(); ++call) {
        const uint8_t op = in.Next();
        const int unit = op >> 7;
        EnsureOpen(unit);
        const int device = op & 0x40 ? in.Int() : devices[unit];
        switch (op % 12) {
            case 0:
                qorConfigCenterSpan(device, in.Real(1e6, 4.4e9), in.Real(-1e3, 100e6));
                break;
            case 1:
                qorConfigSweepCoupling(device, in.Real(1e3, 400e3), in.Real(1e3, 400e3), in.Next() & 1);
                break;
            case 2:
                qorConfigLevel(device, in.Real(-150.0, 30.0));
                break;
            case 3:
                qorConfigGainAtten(device, in.Int(), in.Int(), in.Next() & 1);
                break;
            case 4:
                qorConfigAcquisition(device, in.Int(), in.Int());
                break;
            case 5:
                qorConfigProcUnits(device, in.Int());
                qorConfigRBWShape(device, in.Int());
                break;
            case 6:
                qorConfigIQ(device, in.Int(), in.Real(1e3, 500e3));
                break;
            case 7:
                qorInitiate(device, in.Int());
                break;
            case 8:
            case 9:
                Get(device, in);
                break;
            case 10:
                qorAbort(device);
                break;
            default:
                if (qorCloseDevice(device) == qorNoError) {
                    for (int& d : devices) d = d == device ? -1 : d;
                }
                break;
        }
    }
    for (int d : devices) qorAbort(d);
    return 0;
}
