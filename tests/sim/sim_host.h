// A minimal host for the virtual instrument's own tests: it loads a bench,
// opens a unit's two channels through the D2XX surface and talks frames.
#ifndef QOR_TESTS_SIM_SIM_HOST_H
#define QOR_TESTS_SIM_SIM_HOST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "d2xx_api.h"
#include "frame_decoder.h"
#include "qorsim.h"
#include "sim_bench.h"

namespace simtest {

inline void LoadBench(const simbench::Bench& bench) {
    ASSERT_EQ(qorsim_load_bench_json(simbench::Json(bench).c_str()), 0) << qorsim_last_error();
}

struct ListEntry {
    DWORD flags = 0;
    std::string serial;
    std::string description;
};

inline std::vector<ListEntry> List() {
    DWORD count = 0;
    EXPECT_EQ(FT_CreateDeviceInfoList(&count), FT_OK);
    std::vector<ListEntry> out;
    for (DWORD i = 0; i < count; ++i) {
        char serial[16] = {}, description[64] = {};
        DWORD flags = 0, type = 0, id = 0, loc = 0;
        FT_HANDLE h = nullptr;
        EXPECT_EQ(FT_GetDeviceInfoDetail(i, &flags, &type, &id, &loc, serial, description, &h), FT_OK);
        out.push_back({flags, serial, description});
    }
    return out;
}

class Unit {
public:
    // Opens both channels of the unit with this serial; check Ok() afterwards.
    explicit Unit(unsigned serial) {
        const auto list = List();
        char prefix[16];
        std::snprintf(prefix, sizeof prefix, "%08u", serial);
        for (size_t i = 0; i < list.size(); ++i) {
            if (list[i].serial.compare(0, 8, prefix) != 0) continue;
            FT_HANDLE* target = list[i].description == "Tarven Works A" ? &stream : &command;
            if (FT_Open(static_cast<int>(i), target) != FT_OK) *target = nullptr;
        }
    }
    ~Unit() {
        if (stream) FT_Close(stream);
        if (command) FT_Close(command);
    }
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    bool Ok() const { return stream && command; }

    void Send(std::vector<uint8_t> payload) {
        auto wire = qorsim::EncodeFrame(payload);
        DWORD written = 0;
        ASSERT_EQ(FT_Write(command, wire.data(), static_cast<DWORD>(wire.size()), &written), FT_OK);
    }
    std::vector<uint8_t> Reply(size_t n) { return ReadFrom(command, n); }
    std::vector<uint8_t> Stream(size_t n) { return ReadFrom(stream, n); }
    DWORD Queued() {
        DWORD q = 0;
        FT_GetQueueStatus(stream, &q);
        return q;
    }

    static std::vector<uint8_t> ReadFrom(FT_HANDLE h, size_t n) {
        std::vector<uint8_t> buffer(n);
        DWORD got = 0;
        FT_Read(h, buffer.data(), static_cast<DWORD>(n), &got);
        buffer.resize(got);
        return buffer;
    }

    FT_HANDLE stream = nullptr;
    FT_HANDLE command = nullptr;
};

// A bench with one unit of each device type and the fast clock.
inline simbench::Bench FourUnitBench(const std::string& pacing = "immediate") {
    simbench::Bench bench;
    bench.pacing = pacing;
    bench.units = {simbench::Unit(10000001, 1).Temperature(25.0).Add(simbench::Cw(100e6, -30)),
                   simbench::Unit(10000002, 2).Temperature(31.5).OnDeviceCalibration(true),
                   simbench::Unit(10000003, 3).Temperature(40.0),
                   simbench::Unit(10000004, 4).Temperature(-5.0).OnDeviceCalibration(true)};
    return bench;
}

}  // namespace simtest

#endif
