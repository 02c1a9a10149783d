// Argument checks shared by the primitives.
#ifndef QOR_PRIMITIVES_IPP_CHECK_H
#define QOR_PRIMITIVES_IPP_CHECK_H

#include "ipp_types.h"

namespace qor_prim {

template <typename... P>
constexpr bool AnyNull(const P*... pointers) {
    return ((pointers == nullptr) || ...);
}

// The common frame of the vector primitives: pointers first, then the length.
template <typename... P>
constexpr IppStatus CheckVector(int length, const P*... pointers) {
    if (AnyNull(pointers...)) return ippStsNullPtrErr;
    if (length < 1) return ippStsSizeErr;
    return ippStsNoErr;
}

}  // namespace qor_prim

#endif
