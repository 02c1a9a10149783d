// The binary frame the live view streams to the page, one per trace.
//
// Little-endian, a header of 80 bytes, then the data:
//   0 u32 magic "QORV"    4 u32 bytes in the frame   8 u32 sequence   12 u32 generation
//  16 i32 status         20 u32 mode (0 sweep, 1 real time)
//  24 u32 bins           28 u32 bins measured so far  32 f64 start frequency   40 f64 bin size
//  48 u32 image width    52 u32 image height
//  56 f64 peak frequency 64 f64 next peak frequency (NaN: none)
//  72 f32 peak level     76 f32 next peak level
//  80 f32 min[bins], f32 max[bins] in dBm,
//     then u8 image[width x height], row-major from the lowest level, padded to 4 bytes:
//     0 for no hit, else 255 + 51 log10(density), at least 1.
#ifndef QOR_TOOL_VIEW_FRAME_H
#define QOR_TOOL_VIEW_FRAME_H

#include <string>

#include "live_measurement.h"

namespace qortool {

constexpr unsigned kFrameMagic = 0x56524f51;  // "QORV"
constexpr std::size_t kFrameHeaderBytes = 80;

std::string EncodeFrame(const LiveFrame& frame);

}  // namespace qortool

#endif
