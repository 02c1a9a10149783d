// Every engine of the library as a test drives it: how to start it on a unit
// of a given type and how to take one result from it. The tests of unplugs,
// of stress from many threads and of leaving a mode go through this one list.
#ifndef QOR_TESTS_SUPPORT_E2E_MODES_H
#define QOR_TESTS_SUPPORT_E2E_MODES_H

#include <functional>
#include <vector>

#include "e2e_bench.h"

namespace e2e {

struct ModeCase {
    const char* name;
    int type;  // the device type it runs on
    std::function<qorStatus(int device)> start;
    std::function<qorStatus(int device)> get;  // one result: a sweep, a block of samples
};

inline qorStatus GetSweep(int device) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    if (qorQuerySweepInfo(device, &length, &start, &bin) != qorNoError) return qorNotConfiguredErr;
    std::vector<float> min(static_cast<size_t>(length)), max(min.size());
    return qorGetSweep_32f(device, min.data(), max.data());
}

inline qorStatus GetIq(int device) {
    std::vector<float> iq(2 * 4096);
    IQPacket packet{iq.data(), 4096, 0, 0, 0, 0, 0};
    return qorGetIQData(device, &packet);
}

inline qorStatus GetFrame(int device) { return qorGetRealTimeFrame(device, nullptr, nullptr, nullptr); }

inline qorStatus GetAudio(int device) { return qorGetAudio(device, std::vector<float>(4096).data()); }

inline std::function<qorStatus(int)> SweepOf(Sweep s) { return [s](int device) { return Initiate(device, s); }; }

// Each engine on settings that measure a tone at 1 GHz in milliseconds of the fast clock.
inline const std::vector<ModeCase>& AllModes() {
    static const std::vector<ModeCase> modes = {
        // 1 kHz captures one block from the unit's memory, 10 Hz streams 2^18 samples.
        {"slow, block", 2, SweepOf(Between(999.9e6, 1000.1e6, 1e3)), GetSweep},
        {"slow, stream", 2, SweepOf(Between(999.999e6, 1000.001e6, 10.0)), GetSweep},
        {"fast", 2, SweepOf(Between(500e6, 1500e6, 100e3)), GetSweep},
        {"midrange", 4, SweepOf(Between(995e6, 1005e6, 3e3)), GetSweep},
        {"broadband, 12.4 GHz", 4, SweepOf(Between(200e6, 3e9, 1e6)), GetSweep},
        {"broadband, 4.4 GHz", 2, SweepOf(Between(500e6, 4e9, 1e6)), GetSweep},
        {"iq", 2,
         [](int d) {
             qorConfigCenterSpan(d, 1e9, 100e3);
             qorConfigIQ(d, 2, 100e3);
             return qorInitiate(d, ModeIQ);
         },
         GetIq},
        {"real time", 2,
         [](int d) {
             qorConfigCenterSpan(d, 1e9, 100e3);
             qorConfigSweepCoupling(d, 1e3, 1e3, false);
             return qorInitiate(d, ModeRealTime);
         },
         GetFrame},
        {"audio", 2,
         [](int d) {
             qorConfigAudio(d, 0, 1e9, 100e3, 10e3, 100.0, 75.0);
             return qorInitiate(d, ModeAudio);
         },
         GetAudio},
        {"tracking generator", 4,
         [](int d) {
             qorConfigCenterSpan(d, 1e9, 100e6);
             qorConfigTgSweep(d, 100, false, false);
             return qorInitiate(d, ModeTGSweep);
         },
         GetSweep},
    };
    return modes;
}

}  // namespace e2e

#endif
