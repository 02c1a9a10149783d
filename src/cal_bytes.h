// Little-endian fields of the calibration blocks. The blocks carry no
// alignment promise, so every field is assembled byte by byte.
#ifndef QOR_CAL_BYTES_H
#define QOR_CAL_BYTES_H

#include <cstdint>
#include <cstring>

namespace qor {

inline uint16_t ReadLeU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t ReadLeU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline uint64_t ReadLeU64(const uint8_t* p) {
    return static_cast<uint64_t>(ReadLeU32(p)) | (static_cast<uint64_t>(ReadLeU32(p + 4)) << 32);
}

inline float ReadLeF32(const uint8_t* p) {
    const uint32_t bits = ReadLeU32(p);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

inline double ReadLeF64(const uint8_t* p) {
    const uint64_t bits = ReadLeU64(p);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

}  // namespace qor

#endif
