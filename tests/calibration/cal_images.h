// Synthetic calibration blocks for the correction tests, written field by
// field in the units' byte layouts (little-endian), independently of the
// library's readers.
#ifndef QOR_TESTS_CAL_IMAGES_H
#define QOR_TESTS_CAL_IMAGES_H

#include <cstdint>
#include <cstring>
#include <vector>

namespace caltest {

struct Image {
    explicit Image(std::size_t size) : bytes(size, 0) {}
    void U8(std::size_t at, int v) { bytes.at(at) = static_cast<uint8_t>(v); }
    void U16(std::size_t at, int v) {
        U8(at, v & 0xFF);
        U8(at + 1, (v >> 8) & 0xFF);
    }
    void F32(std::size_t at, double v) {
        const float f = static_cast<float>(v);
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        for (int i = 0; i < 4; ++i) U8(at + i, (bits >> (8 * i)) & 0xFF);
    }
    void F64(std::size_t at, double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, 8);
        for (int i = 0; i < 8; ++i) U8(at + i, static_cast<int>((bits >> (8 * i)) & 0xFF));
    }
    uint8_t* data() { return bytes.data(); }
    std::vector<uint8_t> bytes;
};

// Unit block of the 4.4 GHz family.
namespace velm_unit {
constexpr int kPreampRolloff = 112, kLowIfOffsetLow = 129, kLowIfOffsetHigh = 130, kAttenLow = 132,
              kAttenHigh = 732, kIfHigh = 2436, kIfLow = 2488, kGain0 = 2540, kGain2 = 2542, kLevelHigh = 2544,
              kLevelLow = 2546, kTimebase = 2548, kPreampLow = 2552, kPreampHigh = 2702;
}

// Table block of the 4.4 GHz family: 16 records of f64.
namespace velm_table {
constexpr int kRecord = 28648, kAttenDelta = 832, kPreampLow = 19264, kPreampHigh = 20464, kHighIfLow = 23872,
              kHighIfHigh = 25072, kTemperature = 28480 + 16;
}

// Table block of the 12.4 GHz family: 12 records, then the tail.
namespace orsk_table {
constexpr int kRecord = 47634, kPath = 416, kColumn = 1921, kRf = 38836, kFine = 46552, kCurveALevel = 47392,
              kCurveBLevel = 47476, kCurveACode = 47540, kCurveBCode = 47582, kGainStep = 47614,
              kTemperature = 47618, kOcxoDac = 571608, kTimebase = 571610, kSize = 571616;
// Segments of a response column: first point, points, first frequency, step.
struct Segment {
    int first, points;
    double start, step;
};
constexpr Segment kSegments[9] = {{0, 6, 100e3, 50e3},       {6, 6, 400e3, 100e3},     {12, 30, 1e6, 1e6},
                                  {42, 24, 35e6, 5e6},       {66, 401, 150e6, 1e7},    {467, 351, 4e9, 1e7},
                                  {818, 351, 5e9, 1e7},      {1169, 376, 8.25e9, 1e7}, {1545, 376, 9.25e9, 1e7}};
}  // namespace orsk_table

}  // namespace caltest

#endif
