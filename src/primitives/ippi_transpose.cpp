#include "ippi_transpose.h"

#include <cstddef>

namespace {

// Tiles small enough that the rows of both sides stay in the first-level cache.
constexpr int kTile = 32;

}  // namespace

IppStatus ippiTranspose_32f_C1R(const Ipp32f* src, int srcStep, Ipp32f* dst, int dstStep, IppiSize size) {
    if (src == nullptr || dst == nullptr) return ippStsNullPtrErr;
    if (size.width < 1 || size.height < 1) return ippStsSizeErr;
    const long long elementSize = sizeof(Ipp32f);
    if (srcStep % elementSize != 0 || dstStep % elementSize != 0 || srcStep < size.width * elementSize ||
        dstStep < size.height * elementSize) {
        return ippStsStepErr;
    }
    const std::ptrdiff_t srcPitch = srcStep / elementSize, dstPitch = dstStep / elementSize;
    for (int y0 = 0; y0 < size.height; y0 += kTile) {
        const int y1 = y0 + kTile < size.height ? y0 + kTile : size.height;
        for (int x0 = 0; x0 < size.width; x0 += kTile) {
            const int x1 = x0 + kTile < size.width ? x0 + kTile : size.width;
            for (int y = y0; y < y1; ++y) {
                for (int x = x0; x < x1; ++x) dst[x * dstPitch + y] = src[y * srcPitch + x];
            }
        }
    }
    return ippStsNoErr;
}
