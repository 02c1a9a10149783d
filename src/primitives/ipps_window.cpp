#include "ipps_window.h"

#include "window_shapes.h"

IppStatus ippsWinBlackmanStd_64f_I(Ipp64f* array, int length) {
    if (array == nullptr) return ippStsNullPtrErr;
    if (length < 3) return ippStsSizeErr;
    for (int n = 0; n < length; ++n) array[n] *= qor_prim::BlackmanPoint(-0.16, n, length);
    return ippStsNoErr;
}
