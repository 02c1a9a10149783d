#include "ipps_fir.h"

#include <cstring>

#include "dispatch_row.h"
#include "fft_core.h"
#include "fir_kernels.h"
#include "ipp_check.h"
#include "ipp_memory.h"

namespace {

// From this tap count on, fast convolution.
constexpr int kFastMinTaps = 128;
// Beyond this the fast convolution would need an FFT above 2^24 points.
constexpr int kMaxTaps = 1 << 22;
// Samples per direct-form step.
constexpr int kDirectChunk = 1024;
constexpr uint64_t kFirMagic = 0xF14C0DE5F14C0DE5ULL;
constexpr size_t kAlign = 64;

size_t AlignUp(size_t bytes) { return (bytes + kAlign - 1) & ~(kAlign - 1); }

const qor_prim::DispatchRow<const qor_prim::FirKernels*> kKernelRow(&qor_prim::kFirKernelsGeneric,
                                                                     &qor_prim::kFirKernelsAvx2,
                                                                     &qor_prim::kFirKernelsAvx512);

int CeilLog2(int v) {
    int order = 0;
    while ((1 << order) < v) ++order;
    return order;
}

// Where each part of a state lies in its memory, as offsets from the aligned start.
struct Layout {
    bool fast;
    int order;  // of the FFT
    int chunk;  // samples handled per step
    size_t reversed, line, out, realLine, spectrum, spectrumHalf, freq, fftSpec, fftHalfSpec, fftWork, total;
};

Layout PlanLayout(int taps, bool complex);

}  // namespace

// Every state type is this one record; `kind` tells them apart.
struct FirCore {
    uint64_t magic;
    int kind;
    int taps;
    Layout layout;
    const qor_prim::FirKernels* kernels;
    void* block;  // what ippsFIRInitAlloc_64f allocated, else null
    IppsFFTSpec_C_64fc* fft;
    IppsFFTSpec_C_64fc* fftHalf;  // of half the points: with fft, the tables of every shorter transform
    char* base;   // the aligned start that the layout offsets count from

    template <typename T>
    T* At(size_t offset) const {
        return reinterpret_cast<T*>(base + offset);
    }
};

struct IppsFIRState_32f { FirCore core; };
struct IppsFIRState_64f { FirCore core; };
struct IppsFIRState_32fc { FirCore core; };
struct IppsFIRState_64fc { FirCore core; };

namespace {

Layout PlanLayout(int taps, bool complex) {
    const size_t domain = complex ? sizeof(Ipp64fc) : sizeof(double);
    Layout l{};
    size_t at = AlignUp(sizeof(FirCore));
    const auto take = [&at](size_t bytes) {
        const size_t offset = at;
        at += AlignUp(bytes);
        return offset;
    };
    l.reversed = take(taps * domain);
    if (taps < kFastMinTaps) {
        l.chunk = kDirectChunk;
        l.line = take((taps - 1 + kDirectChunk) * domain);
        l.out = take(kDirectChunk * domain);
    } else {
        // An FFT of about four times the taps: 3/4 of each transform is new output.
        l.fast = true;
        l.order = CeilLog2(taps) + 2;
        const size_t n = size_t{1} << l.order;
        const size_t fresh = n - taps + 1;
        l.chunk = static_cast<int>(complex ? fresh : 2 * fresh);
        const qor_prim::FftSizes sizes = qor_prim::FftMemorySizes(l.order);
        l.line = take(n * sizeof(Ipp64fc));
        if (!complex) l.realLine = take((taps - 1 + 2 * fresh) * sizeof(double));
        l.spectrum = take(n * sizeof(Ipp64fc));
        l.spectrumHalf = take(n / 2 * sizeof(Ipp64fc));
        l.freq = take(n * sizeof(Ipp64fc));
        l.fftSpec = take(sizes.spec);
        l.fftHalfSpec = take(qor_prim::FftMemorySizes(l.order - 1).spec);
        l.fftWork = take(sizes.work);
    }
    l.total = at + kAlign;
    return l;
}

template <typename S> struct Traits;
template <> struct Traits<Ipp32f> { using Domain = double; using State = IppsFIRState_32f; static constexpr int kKind = 1; };
template <> struct Traits<Ipp64f> { using Domain = double; using State = IppsFIRState_64f; static constexpr int kKind = 2; };
template <> struct Traits<Ipp32fc> { using Domain = Ipp64fc; using State = IppsFIRState_32fc; static constexpr int kKind = 3; };
template <> struct Traits<Ipp64fc> { using Domain = Ipp64fc; using State = IppsFIRState_64fc; static constexpr int kKind = 4; };

inline double Widen(Ipp32f v) { return v; }
inline double Widen(Ipp64f v) { return v; }
inline Ipp64fc Widen(Ipp32fc v) { return {v.re, v.im}; }
inline Ipp64fc Widen(Ipp64fc v) { return v; }
inline Ipp64fc ToComplex(double v) { return {v, 0.0}; }
inline Ipp64fc ToComplex(Ipp64fc v) { return v; }
inline void Put(double v, Ipp32f* d) { *d = static_cast<Ipp32f>(v); }
inline void Put(double v, Ipp64f* d) { *d = v; }
inline void Put(Ipp64fc v, Ipp32fc* d) { *d = {static_cast<float>(v.re), static_cast<float>(v.im)}; }
inline void Put(Ipp64fc v, Ipp64fc* d) { *d = v; }

// count samples into the line, float ones by the vector conversion.
void WidenInto(const FirCore& c, const Ipp32f* src, double* line, int count) { c.kernels->widen(src, line, count); }
void WidenInto(const FirCore& c, const Ipp32fc* src, Ipp64fc* line, int count) {
    c.kernels->widen(&src[0].re, &line[0].re, 2 * count);
}
template <typename S, typename D>
void WidenInto(const FirCore&, const S* src, D* line, int count) {
    std::memcpy(static_cast<void*>(line), src, sizeof(D) * static_cast<size_t>(count));
}

// count complex outputs in a row into dst.
void PutAll(const FirCore& c, const Ipp64fc* y, int count, Ipp32fc* dst) {
    c.kernels->narrow(&y[0].re, &dst[0].re, 2 * count);
}
void PutAll(const FirCore&, const Ipp64fc* y, int count, Ipp64fc* dst) {
    std::memcpy(static_cast<void*>(dst), y, sizeof(Ipp64fc) * static_cast<size_t>(count));
}

void Direct(const FirCore& c, const double* line, int count, double* out) {
    c.kernels->directReal(line, c.At<double>(c.layout.reversed), c.taps, count, out);
}
void Direct(const FirCore& c, const Ipp64fc* line, int count, Ipp64fc* out) {
    c.kernels->directComplex(line, c.At<Ipp64fc>(c.layout.reversed), c.taps, count, out);
}

// The samples before the next block: in the real line of a fast real filter, else in the line.
template <typename D>
D* History(const FirCore& c) {
    return c.layout.fast && sizeof(D) == sizeof(double) ? c.At<D>(c.layout.realLine) : c.At<D>(c.layout.line);
}

// Direct form pays taps per sample; fast convolution about two transforms per chunk.
bool DirectIsCheaper(const FirCore& c, int count) {
    return static_cast<long long>(count) * c.taps <= (static_cast<long long>(c.layout.order) << c.layout.order) / 2;
}

// The transform a chunk is filtered with: the full one, or the one of half
// the points for a chunk short enough (the last of a block, mostly).
struct Transform {
    const IppsFFTSpec_C_64fc* spec;
    const Ipp64fc* spectrum;  // of the taps, turned back by keep, scaled by 1 / n
};

// Whether the folded transform of factor can follow t: a power of two, no
// more than the points, and the shorter transforms run on the tables of the
// unsplit sizes.
bool CanFold(const FirCore& c, const Transform& t, int factor) {
    const bool powerOfTwo = (factor & (factor - 1)) == 0;
    return factor == 1 || (powerOfTwo && !c.fft->split && !c.fftHalf->split && (1 << t.spec->order) >= factor);
}

// Circular convolution of the line with the taps, into freq: output i is the
// filter's output for line[keep + i] (the taps' spectrum is that of the taps
// turned back by keep). With a factor above 1, only every factor-th output:
// the spectrum folded onto n / factor bins, whose inverse transform is the
// sampled output, at a fraction of the cost of the whole.
void Convolve(const FirCore& c, const Transform& t, int factor) {
    const int n = 1 << t.spec->order;
    Ipp64fc* freq = c.At<Ipp64fc>(c.layout.freq);
    void* work = c.At<void>(c.layout.fftWork);
    qor_prim::FftRunTimes(*t.spec, c.At<Ipp64fc>(c.layout.line), freq, work, t.spectrum);
    if (factor == 1) {
        qor_prim::FftRunScaled(*t.spec, freq, freq, work, true, 1.0);
        return;
    }
    // One pass over the rows, eight sums at a time held in registers (added
    // in the order of the rows).
    const int values = 2 * (n / factor);
    double* fold = &freq[0].re;
    int at = 0;
    for (; at + 8 <= values; at += 8) {
        double sum[8];
        for (int k = 0; k < 8; ++k) sum[k] = fold[at + k];
        for (int r = 1; r < factor; ++r) {
            for (int k = 0; k < 8; ++k) sum[k] += fold[r * values + at + k];
        }
        for (int k = 0; k < 8; ++k) fold[at + k] = sum[k];
    }
    for (; at < values; ++at) {
        for (int r = 1; r < factor; ++r) fold[at] += fold[r * values + at];
    }
    const int order = t.spec->order - CeilLog2(factor);
    const IppsFFTSpec_C_64fc& spec = (c.fft->order - order) % 2 == 0 ? *c.fft : *c.fftHalf;
    qor_prim::FftRunShorter(spec, order, freq, freq, work, true, 1.0);
}

// Every factor-th of count outputs, from phase on, into dst; phase moves on
// to the next chunk. Returns how many were written.
template <typename Get, typename S>
int PutEvery(Get get, int count, S* dst, int factor, int& phase) {
    if (factor == 1) {  // the plain copy, in a loop the compiler vectorises
        for (int i = 0; i < count; ++i) Put(get(i), dst + i);
        return count;
    }
    int written = 0;
    int i = phase;
    for (; i < count; i += factor) Put(get(i), dst + written++);
    phase = i - count;
    return written;
}

// Filters count samples with t and writes every factor-th output from phase
// on (all of them for factor 1); `fresh` is the most a real chunk's half
// holds. Returns how many outputs were written.
template <typename S>
int FilterChunk(const FirCore& c, const S* src, S* dst, int count, const Transform& t, int fresh, int factor,
                int& phase) {
    using D = typename Traits<S>::Domain;
    const int keep = c.taps - 1;
    D* line = History<D>(c);
    WidenInto(c, src, line + keep, count);
    int written = 0;
    if (!c.layout.fast || DirectIsCheaper(c, count)) {
        D* out = c.layout.fast ? c.At<D>(c.layout.freq) : c.At<D>(c.layout.out);
        Direct(c, line, count, out);
        written = PutEvery([out](int i) { return out[i]; }, count, dst, factor, phase);
    } else if constexpr (sizeof(D) == sizeof(Ipp64fc)) {
        const int n = 1 << t.spec->order;
        for (int i = keep + count; i < n; ++i) line[i] = {0.0, 0.0};
        const bool fold = phase == 0 && count % factor == 0 && CanFold(c, t, factor);
        Convolve(c, t, fold ? factor : 1);
        const Ipp64fc* y = c.At<Ipp64fc>(c.layout.freq);
        if (fold || factor == 1) {
            written = fold ? count / factor : count;
            PutAll(c, y, written, dst);
        } else {
            written = PutEvery([y](int i) { return y[i]; }, count, dst, factor, phase);
        }
    } else {
        // Two real chunks ride in one complex transform: the first in the real
        // parts, the next (with its own history) in the imaginary parts.
        const int n = 1 << t.spec->order;
        const int first = count < fresh ? count : fresh, second = count - first;
        Ipp64fc* packed = c.At<Ipp64fc>(c.layout.line);
        // The second chunk only when it has samples: its history lies beyond
        // the first's samples, in memory not written yet.
        const int both = second > 0 ? keep + second : 0;  // second <= first
        for (int i = 0; i < both; ++i) packed[i] = {line[i], line[fresh + i]};
        for (int i = both; i < keep + first; ++i) packed[i] = {line[i], 0.0};
        for (int i = keep + first; i < n; ++i) packed[i] = {0.0, 0.0};
        const bool fold = phase == 0 && first % factor == 0 && second % factor == 0 && CanFold(c, t, factor);
        Convolve(c, t, fold ? factor : 1);
        const Ipp64fc* y = c.At<Ipp64fc>(c.layout.freq);
        const int step = fold ? 1 : factor;
        written = PutEvery([y](int i) { return y[i].re; }, fold ? first / factor : first, dst, step, phase);
        written += PutEvery([y](int i) { return y[i].im; }, fold ? second / factor : second, dst + written, step,
                            phase);
    }
    std::memmove(static_cast<void*>(line), line + count, sizeof(D) * keep);
    return written;
}

template <typename S>
IppStatus GetStateSize(int tapCount, int* size) {
    if (size == nullptr) return ippStsNullPtrErr;
    if (tapCount < 1 || tapCount > kMaxTaps) return ippStsFIRLenErr;
    const bool complex = sizeof(typename Traits<S>::Domain) == sizeof(Ipp64fc);
    *size = static_cast<int>(PlanLayout(tapCount, complex).total);
    return ippStsNoErr;
}

template <typename S>
IppStatus Init(typename Traits<S>::State** state, const S* taps, int tapCount, const S* delayLine, Ipp8u* memory) {
    using D = typename Traits<S>::Domain;
    if (qor_prim::AnyNull(state, taps, memory)) return ippStsNullPtrErr;
    if (tapCount < 1 || tapCount > kMaxTaps) return ippStsFIRLenErr;
    const bool complex = sizeof(D) == sizeof(Ipp64fc);
    char* base = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(memory) + kAlign - 1) & ~uintptr_t{kAlign - 1});
    auto* core = reinterpret_cast<FirCore*>(base);
    *core = FirCore{};
    core->magic = kFirMagic;
    core->kind = Traits<S>::kKind;
    core->taps = tapCount;
    core->layout = PlanLayout(tapCount, complex);
    core->kernels = kKernelRow.Pick();
    core->base = base;
    D* reversed = core->At<D>(core->layout.reversed);
    for (int j = 0; j < tapCount; ++j) reversed[j] = Widen(taps[tapCount - 1 - j]);
    D* history = History<D>(*core);
    for (int i = 0; i < tapCount - 1; ++i) history[i] = delayLine ? Widen(delayLine[i]) : D{};
    if (core->layout.fast) {
        // The frequency buffer is free until the first call: scratch for the twiddles.
        core->fft = qor_prim::FftBuild(core->layout.order, 1.0, 1.0, core->At<void>(core->layout.fftSpec),
                                       core->At<void>(core->layout.freq));
        core->fftHalf = qor_prim::FftBuild(core->layout.order - 1, 1.0, 1.0, core->At<void>(core->layout.fftHalfSpec),
                                           core->At<void>(core->layout.freq));
        // The taps turned back by tapCount - 1, so that the output of the
        // chunk's first sample comes first; scaled by 1 / N, so that the
        // inverse transform of each chunk needs no scaling.
        const auto spectrumOf = [&](const IppsFFTSpec_C_64fc& fft, Ipp64fc* spectrum) {
            const int size = 1 << fft.order;
            for (int i = 0; i < size; ++i) spectrum[i] = {0.0, 0.0};
            for (int i = 0; i < tapCount; ++i) spectrum[(i - (tapCount - 1) + size) % size] = ToComplex(Widen(taps[i]));
            qor_prim::FftRunScaled(fft, spectrum, spectrum, core->At<void>(core->layout.fftWork), false, 1.0 / size);
        };
        spectrumOf(*core->fft, core->At<Ipp64fc>(core->layout.spectrum));
        spectrumOf(*core->fftHalf, core->At<Ipp64fc>(core->layout.spectrumHalf));
    }
    *state = reinterpret_cast<typename Traits<S>::State*>(core);
    return ippStsNoErr;
}

template <typename S>
IppStatus FilterDown(const S* src, S* dst, int length, int* dstLength, int factor, int* phase,
                     typename Traits<S>::State* state) {
    if (IppStatus s = qor_prim::CheckVector(length, src, dst, state)) return s;
    if (qor_prim::AnyNull(dstLength, phase)) return ippStsNullPtrErr;
    if (factor < 1) return ippStsSampleFactorErr;
    if (*phase < 0 || *phase >= factor) return ippStsSamplePhaseErr;
    const FirCore& core = state->core;
    if (core.magic != kFirMagic || core.kind != Traits<S>::kKind) return ippStsContextMatchErr;
    // Chunks (and the halves of a real chunk) of a multiple of the factor keep
    // the phase at 0 from chunk to chunk, where the folded transform serves.
    const bool complex = sizeof(typename Traits<S>::Domain) == sizeof(Ipp64fc);
    const auto roundDown = [&core, factor](int fresh) {
        return core.layout.fast && fresh >= factor ? fresh - fresh % factor : fresh;
    };
    const int fresh = roundDown(complex ? core.layout.chunk : core.layout.chunk / 2);
    const int chunk = complex ? fresh : 2 * fresh;
    Transform full{}, half{};
    int halfFresh = 0;  // new samples the half transform takes (each half of a real one)
    if (core.layout.fast) {
        full = {core.fft, core.At<Ipp64fc>(core.layout.spectrum)};
        half = {core.fftHalf, core.At<Ipp64fc>(core.layout.spectrumHalf)};
        const int room = (1 << (core.layout.order - 1)) - core.taps + 1;
        halfFresh = room > 0 ? roundDown(room) : 0;
    }
    int written = 0;
    for (int pos = 0; pos < length; pos += chunk) {
        const int count = length - pos < chunk ? length - pos : chunk;
        const bool small = count <= (complex ? halfFresh : 2 * halfFresh);
        written += FilterChunk(core, src + pos, dst + written, count, small ? half : full, small ? halfFresh : fresh,
                               factor, *phase);
    }
    *dstLength = written;
    return ippStsNoErr;
}

template <typename S>
IppStatus Filter(const S* src, S* dst, int length, typename Traits<S>::State* state) {
    int written = 0, phase = 0;
    return FilterDown(src, dst, length, &written, 1, &phase, state);
}

}  // namespace

IppStatus ippsFIRGetStateSize_32f(int tapCount, int* size) { return GetStateSize<Ipp32f>(tapCount, size); }
IppStatus ippsFIRGetStateSize_32fc(int tapCount, int* size) { return GetStateSize<Ipp32fc>(tapCount, size); }
IppStatus ippsFIRGetStateSize_64fc(int tapCount, int* size) { return GetStateSize<Ipp64fc>(tapCount, size); }

IppStatus ippsFIRInit_32f(IppsFIRState_32f** state, const Ipp32f* taps, int tapCount, const Ipp32f* delayLine,
                          Ipp8u* memory) {
    return Init(state, taps, tapCount, delayLine, memory);
}
IppStatus ippsFIRInit_32fc(IppsFIRState_32fc** state, const Ipp32fc* taps, int tapCount, const Ipp32fc* delayLine,
                           Ipp8u* memory) {
    return Init(state, taps, tapCount, delayLine, memory);
}
IppStatus ippsFIRInit_64fc(IppsFIRState_64fc** state, const Ipp64fc* taps, int tapCount, const Ipp64fc* delayLine,
                           Ipp8u* memory) {
    return Init(state, taps, tapCount, delayLine, memory);
}

IppStatus ippsFIRInitAlloc_64f(IppsFIRState_64f** state, const Ipp64f* taps, int tapCount, const Ipp64f* delayLine) {
    if (qor_prim::AnyNull(state, taps)) return ippStsNullPtrErr;
    int size = 0;
    if (IppStatus s = GetStateSize<Ipp64f>(tapCount, &size)) return s;
    Ipp8u* memory = ippsMalloc_8u(size);
    if (memory == nullptr) return ippStsMemAllocErr;
    Init(state, taps, tapCount, delayLine, memory);
    (*state)->core.block = memory;
    return ippStsNoErr;
}

IppStatus ippsFIRFree_64f(IppsFIRState_64f* state) {
    if (state == nullptr) return ippStsNullPtrErr;
    if (state->core.magic != kFirMagic || state->core.kind != Traits<Ipp64f>::kKind || state->core.block == nullptr) {
        return ippStsContextMatchErr;
    }
    void* block = state->core.block;
    state->core.magic = 0;
    ippsFree(block);
    return ippStsNoErr;
}

IppStatus ippsFIR_32f(const Ipp32f* src, Ipp32f* dst, int length, IppsFIRState_32f* state) {
    return Filter(src, dst, length, state);
}
IppStatus ippsFIR_32fc(const Ipp32fc* src, Ipp32fc* dst, int length, IppsFIRState_32fc* state) {
    return Filter(src, dst, length, state);
}
IppStatus ippsFIR_64f(const Ipp64f* src, Ipp64f* dst, int length, IppsFIRState_64f* state) {
    return Filter(src, dst, length, state);
}
IppStatus ippsFIR_64fc(const Ipp64fc* src, Ipp64fc* dst, int length, IppsFIRState_64fc* state) {
    return Filter(src, dst, length, state);
}

IppStatus ippsFIRSampleDown_32f(const Ipp32f* src, int srcLength, Ipp32f* dst, int* dstLength, int factor, int* phase,
                                IppsFIRState_32f* state) {
    return FilterDown(src, dst, srcLength, dstLength, factor, phase, state);
}
IppStatus ippsFIRSampleDown_32fc(const Ipp32fc* src, int srcLength, Ipp32fc* dst, int* dstLength, int factor,
                                 int* phase, IppsFIRState_32fc* state) {
    return FilterDown(src, dst, srcLength, dstLength, factor, phase, state);
}
IppStatus ippsFIRSampleDown_64fc(const Ipp64fc* src, int srcLength, Ipp64fc* dst, int* dstLength, int factor,
                                 int* phase, IppsFIRState_64fc* state) {
    return FilterDown(src, dst, srcLength, dstLength, factor, phase, state);
}
