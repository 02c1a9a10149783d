#include "fir_kernels.h"

namespace qor_prim {

namespace {

void DirectReal(const double* line, const double* reversed, int taps, int count, double* out) {
    for (int i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int j = 0; j < taps; ++j) sum += reversed[j] * line[i + j];
        out[i] = sum;
    }
}

void DirectComplex(const Ipp64fc* line, const Ipp64fc* reversed, int taps, int count, Ipp64fc* out) {
    for (int i = 0; i < count; ++i) {
        double re = 0.0, im = 0.0;
        for (int j = 0; j < taps; ++j) {
            const Ipp64fc h = reversed[j], x = line[i + j];
            re += h.re * x.re - h.im * x.im;
            im += h.re * x.im + h.im * x.re;
        }
        out[i] = {re, im};
    }
}

void Widen(const float* src, double* dst, int count) {
    for (int i = 0; i < count; ++i) dst[i] = src[i];
}

void Narrow(const double* src, float* dst, int count) {
    for (int i = 0; i < count; ++i) dst[i] = static_cast<float>(src[i]);
}

}  // namespace

const FirKernels kFirKernelsGeneric = {DirectReal, DirectComplex, Widen, Narrow};

}  // namespace qor_prim
