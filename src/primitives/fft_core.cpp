#include "fft_core.h"

#include <cstring>

#include "dispatch_row.h"
#include "fft_twiddles.h"
#include "ipps_complex.h"

namespace qor_prim {

namespace {

// From this order on, the two-sweep scheme.
constexpr int kSplitMinOrder = 17;
// Columns gathered together: eight complex doubles fill two 64-byte cache
// lines, so that each row a block visits yields whole lines.
constexpr int kBlock = 8;
constexpr size_t kAlign = 64;

size_t AlignUp(size_t bytes) { return (bytes + kAlign - 1) & ~(kAlign - 1); }

template <typename T>
T* AlignPointer(void* p) {
    const auto address = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<T*>((address + kAlign - 1) & ~uintptr_t{kAlign - 1});
}

// Twiddles of the radix-4 passes of length 8 and more: 3 n / 4 per pass.
size_t StockhamTwiddleCount(int order) {
    size_t count = 0;
    for (long long len = 1LL << order; len >= 8; len /= 4) count += 3 * static_cast<size_t>(len / 4);
    return count;
}

int ColumnOrder(int order) { return order / 2; }

const DispatchRow<const FftKernels*> kKernelRow(&kFftKernelsGeneric, &kFftKernelsAvx2, &kFftKernelsAvx512);

void FillStockham(Ipp64fc* twiddles, int order, const TwiddleSource& source, int sourceOrder) {
    const int shift = sourceOrder - order;
    const long long n = 1LL << order;
    for (long long len = n; len >= 8; len /= 4) {
        const long long m = len / 4, step = n / len;
        for (int l = 1; l <= 3; ++l) {
            for (long long p = 0; p < m; ++p) twiddles[(l - 1) * m + p] = source((l * p * step) << shift);
        }
        twiddles += 3 * m;
    }
}

// d = a x w, or conj(a) x w with `conjugate`: a frame times its window.
void Windowed(const FftKernels& k, const Ipp64fc* a, const Ipp64fc* w, bool conjugate, Ipp64fc* d, int length) {
    if (conjugate) {
        k.conjTimes(a, w, d, length);
    } else {
        k.twiddle(a, w, d, length, false);
    }
}

// With `times`, a forward transform whose outputs are multiplied by it
// (scale ignored), in the last pass where the kernels can. With `batch`,
// that many transforms at once, interleaved: point i of transform b at
// i x batch + b, in and out (the batch rides in the passes' stride). With
// `window`, the forward transform of src x window (conj(src) x window when
// `conjugate`), taken in the first sweep where the kernels can.
// Inlined into each entry: the many small frames of the sweeps pay no call.
QOR_ALWAYS_INLINE void RunStockham(const StockhamPlan& plan, const FftKernels& k, const Ipp64fc* src, Ipp64fc* dst,
                                   Ipp64fc* scratch, double scale, bool inverse, const Ipp64fc* times = nullptr,
                                   int batch = 1, const Ipp64fc* window = nullptr, bool conjugate = false) {
    const int n = 1 << plan.order;
    // The sizes without passes of their own first: their calls are many.
    const bool inRegisters = !times && batch == 1 && ((plan.order == 3 && k.whole8) || (plan.order == 4 && k.whole16));
    if (plan.order == 0 || inRegisters) {
        if (window) {
            Windowed(k, src, window, conjugate, dst, n * batch);
            src = dst;
        }
        if (plan.order == 0) {
            for (int b = 0; b < batch; ++b) dst[b] = {src[b].re * scale, src[b].im * scale};
        } else {
            plan.order == 3 ? k.whole8(src, dst, scale, inverse) : k.whole16(src, dst, plan.twiddles, scale, inverse);
        }
        return;
    }
    const int twiddled = (plan.order - 1) / 2;
    // The twiddled passes run two at a time where the kernels fuse them; a
    // pass left over comes last, and joins the last pass where it can.
    const int paired = k.radix4Twice ? twiddled / 2 : 0;
    const bool lone = twiddled > 2 * paired;
    const auto lastTwo = plan.order % 2 == 1 ? k.lastEight : k.lastSixteen;  // the lone pass has 8 or 16 points
    const bool fuseTail = lone && lastTwo && (batch << (2 * (twiddled - 1))) >= 4;
    const int passes = fuseTail ? twiddled - 1 : twiddled;  // run by the loop below
    const bool windowFirst = window && k.radix4TwiceWindowed && batch == 1 && passes >= 2 && plan.order >= 6;
    if (window && !windowFirst) {
        Windowed(k, src, window, conjugate, dst, n * batch);
        src = dst;
    }
    // Sweeps through memory: the twiddled passes, then the last pass.
    const int sweeps = paired + (twiddled - 2 * paired) + (fuseTail ? 0 : 1);
    const Ipp64fc* in = src;
    Ipp64fc* out;
    if (sweeps % 2 == 0) {
        out = scratch;
    } else if (src != dst) {
        out = dst;
    } else {
        // An odd pass count in place: start from a copy so that the last pass lands in dst.
        std::memcpy(static_cast<void*>(scratch), src, (sizeof(Ipp64fc) << plan.order) * batch);
        in = scratch;
        out = dst;
    }
    int len = n, stride = batch;
    const Ipp64fc* twiddles = plan.twiddles;
    for (int t = 0; t < passes;) {
        if (k.radix4Twice && t + 1 < passes) {
            const Ipp64fc* next = twiddles + 3 * (len / 4);
            if (t == 0 && windowFirst) {
                k.radix4TwiceWindowed(len, in, window, conjugate, out, twiddles, next);
            } else {
                k.radix4Twice(len, stride, in, out, twiddles, next, inverse);
            }
            twiddles = next + 3 * (len / 16);
            len /= 16;
            stride *= 16;
            t += 2;
        } else {
            k.radix4(len, stride, in, out, twiddles, inverse);
            twiddles += 3 * (len / 4);
            len /= 4;
            stride *= 4;
            t += 1;
        }
        in = out;
        out = out == dst ? scratch : dst;
    }
    if (fuseTail) {
        lastTwo(stride, in, out, scale, inverse, times);
        return;
    }
    const auto lastTimes = len == 4 ? k.radix4LastTimes : k.radix2LastTimes;
    if (times && lastTimes && stride >= 4) {
        lastTimes(stride, in, out, times);
    } else {
        if (len == 4) {
            k.radix4Last(stride, in, out, scale, inverse);
        } else {
            k.radix2Last(stride, in, out, scale);
        }
        if (times) k.twiddle(out, times, out, n * batch, false);
    }
}

// The rows of a block lie too far apart for the processor to guess them:
// each is fetched some rows ahead of its use.
constexpr long kRowsAhead = 24;

// kBlock values from each of `rows` rows `stride` apart, packed.
template <typename T>
void GatherRows(const T* from, long stride, T* to, long rows) {
    constexpr size_t kRowBytes = kBlock * sizeof(T);
    for (long r = 0; r < rows; ++r) {
        const T* row = from + r * stride;
        if (r + kRowsAhead < rows) {
            for (size_t line = 0; line < kRowBytes; line += 64) {
                __builtin_prefetch(reinterpret_cast<const char*>(row + kRowsAhead * stride) + line);
            }
        }
        std::memcpy(static_cast<void*>(to + r * kBlock), row, kRowBytes);
    }
}

// The reverse: packed rows of kBlock values put back `stride` apart.
template <typename T>
void ScatterRows(const T* from, T* to, long stride, long rows) {
    constexpr size_t kRowBytes = kBlock * sizeof(T);
    for (long r = 0; r < rows; ++r) {
        T* row = to + r * stride;
        if (r + kRowsAhead < rows) {
            for (size_t line = 0; line < kRowBytes; line += 64) {
                __builtin_prefetch(reinterpret_cast<char*>(row + kRowsAhead * stride) + line, 1);
            }
        }
        std::memcpy(static_cast<void*>(row), from + r * kBlock, kRowBytes);
    }
}

// With `window`, the transform of src x window (complex products; conj(src)
// x window when `conjugate`), taken while the first sweep gathers its
// blocks. With `power`, the outputs' power goes there instead of the
// outputs to dst, halves swapped (output k at (k + N / 2) mod N).
void RunSplit(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, Ipp64fc* work, bool inverse,
              double scale, const Ipp64fc* window = nullptr, bool conjugate = false, double* power = nullptr) {
    const FftKernels& k = *spec.kernels;
    const long n1 = 1L << spec.columns.order, n2 = 1L << spec.rows.order;
    const long widest = n1 > n2 ? n1 : n2;
    Ipp64fc* middle = work;  // N1 rows of N2
    Ipp64fc* gathered = middle + n1 * n2;
    Ipp64fc* out = gathered + kBlock * widest;
    Ipp64fc* scratch = out + kBlock * widest;

    // Sweep 1: input n = n1 N2 + n2; a transform over n1 for each column n2,
    // kBlock neighbouring columns at once as one batch, multiplied by the
    // middle twiddles and put back in place.
    for (long c = 0; c < n2; c += kBlock) {
        GatherRows(src + c, n2, gathered, n1);
        if (window) {
            GatherRows(window + c, n2, out, n1);
            Windowed(k, gathered, out, conjugate, gathered, static_cast<int>(n1 * kBlock));
        }
        RunStockham(spec.columns, k, gathered, out, scratch, 1.0, inverse, nullptr, kBlock);
        k.blockTwiddle(out, spec.blockStarts + c / kBlock * n1, spec.inBlock, static_cast<int>(n1), kBlock, inverse);
        ScatterRows(out, middle + c, n2, n1);
    }
    // Sweep 2: a transform over n2 for each row k1; output k1 + N1 k2.
    for (long r = 0; r < n1; r += kBlock) {
        for (int b = 0; b < kBlock; ++b) {
            RunStockham(spec.rows, k, middle + (r + b) * n2, out + b * n2, scratch, 1.0, inverse);
        }
        k.transpose(out, n2, gathered, kBlock, kBlock, static_cast<int>(n2), scale);
        if (!power) {
            ScatterRows(gathered, dst + r, n1, n2);
            continue;
        }
        // Output k1 + N1 k2 goes to row k2 + N2 / 2 (mod N2) of the powers.
        auto* rows = reinterpret_cast<double*>(out);
        ippsPowerSpectr_64fc(gathered, rows, static_cast<int>(n2 * kBlock));
        const long half = n2 / 2;
        ScatterRows(rows, power + half * n1 + r, n1, half);
        ScatterRows(rows + half * kBlock, power + r, n1, half);
    }
}

}  // namespace

FftSizes FftMemorySizes(int order) {
    const size_t point = sizeof(Ipp64fc);
    const size_t n = size_t{1} << order;
    size_t spec = AlignUp(sizeof(IppsFFTSpec_C_64fc)) + kAlign;
    size_t work;
    if (order >= kSplitMinOrder) {
        const int o1 = ColumnOrder(order), o2 = order - o1;
        const size_t widest = size_t{1} << (o1 > o2 ? o1 : o2);
        spec += AlignUp(StockhamTwiddleCount(o1) * point) + AlignUp(StockhamTwiddleCount(o2) * point) +
                AlignUp(n / kBlock * point) + AlignUp((size_t{1} << o1) * kBlock * point);
        work = (n + 3 * kBlock * widest) * point;
    } else {
        spec += AlignUp(StockhamTwiddleCount(order) * point);
        work = n * point;
    }
    return {spec, TwiddleSource::ScratchBytes(order) + kAlign, work + kAlign};
}

IppsFFTSpec_C_64fc* FftBuild(int order, double forwardScale, double inverseScale, void* specMemory, void* initMemory) {
    auto* spec = AlignPointer<IppsFFTSpec_C_64fc>(specMemory);
    auto* next = reinterpret_cast<Ipp64fc*>(reinterpret_cast<char*>(spec) + AlignUp(sizeof(IppsFFTSpec_C_64fc)));
    const TwiddleSource source(order, AlignPointer<void>(initMemory));
    const auto take = [&next](size_t count) {
        Ipp64fc* p = next;
        next += AlignUp(count * sizeof(Ipp64fc)) / sizeof(Ipp64fc);
        return p;
    };
    spec->magic = kFftMagic;
    spec->order = order;
    spec->forwardScale = forwardScale;
    spec->inverseScale = inverseScale;
    spec->kernels = kKernelRow.Pick();
    spec->split = order >= kSplitMinOrder;
    spec->whole = {0, nullptr};
    spec->columns = {0, nullptr};
    spec->rows = {0, nullptr};
    spec->blockStarts = nullptr;
    spec->inBlock = nullptr;
    if (!spec->split) {
        Ipp64fc* twiddles = take(StockhamTwiddleCount(order));
        FillStockham(twiddles, order, source, order);
        spec->whole = {order, twiddles};
        return spec;
    }
    const int o1 = ColumnOrder(order), o2 = order - o1;
    Ipp64fc* t1 = take(StockhamTwiddleCount(o1));
    Ipp64fc* t2 = take(StockhamTwiddleCount(o2));
    FillStockham(t1, o1, source, order);
    FillStockham(t2, o2, source, order);
    const long long n1 = 1LL << o1, n2 = 1LL << o2;
    Ipp64fc* starts = take(static_cast<size_t>(n2 / kBlock * n1));
    Ipp64fc* inBlock = take(static_cast<size_t>(n1 * kBlock));
    for (long long c = 0; c < n2; c += kBlock) {
        for (long long k1 = 0; k1 < n1; ++k1) starts[c / kBlock * n1 + k1] = source(c * k1);
    }
    for (long long k1 = 0; k1 < n1; ++k1) {
        for (int b = 0; b < kBlock; ++b) inBlock[k1 * kBlock + b] = source(b * k1);
    }
    spec->columns = {o1, t1};
    spec->rows = {o2, t2};
    spec->blockStarts = starts;
    spec->inBlock = inBlock;
    return spec;
}

void FftRunScaled(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, bool inverse,
                  double scale) {
    auto* scratch = AlignPointer<Ipp64fc>(work);
    if (spec.split) {
        RunSplit(spec, src, dst, scratch, inverse, scale);
    } else {
        RunStockham(spec.whole, *spec.kernels, src, dst, scratch, scale, inverse);
    }
}

void FftRunShorter(const IppsFFTSpec_C_64fc& spec, int order, const Ipp64fc* src, Ipp64fc* dst, void* work,
                   bool inverse, double scale) {
    const Ipp64fc* twiddles = spec.whole.twiddles;
    for (int o = spec.order; o > order; o -= 2) twiddles += 3 * (size_t{1} << (o - 2));
    RunStockham({order, twiddles}, *spec.kernels, src, dst, AlignPointer<Ipp64fc>(work), scale, inverse);
}

void FftRunTimes(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, const Ipp64fc* h) {
    if (spec.split) {
        RunSplit(spec, src, dst, AlignPointer<Ipp64fc>(work), false, 1.0);
        spec.kernels->twiddle(dst, h, dst, 1 << spec.order, false);
        return;
    }
    RunStockham(spec.whole, *spec.kernels, src, dst, AlignPointer<Ipp64fc>(work), 1.0, false, h);
}

void FftRunWindowed(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, const Ipp64fc* window, bool conjugate,
                    Ipp64fc* dst, void* work) {
    auto* scratch = AlignPointer<Ipp64fc>(work);
    if (spec.split) {
        RunSplit(spec, src, dst, scratch, false, spec.forwardScale, window, conjugate);
        return;
    }
    RunStockham(spec.whole, *spec.kernels, src, dst, scratch, spec.forwardScale, false, nullptr, 1, window, conjugate);
}

void FftRunWindowedPower(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, const Ipp64fc* window, bool conjugate,
                         Ipp64fc* scratch, double* power, void* work) {
    if (spec.split) {
        RunSplit(spec, src, nullptr, AlignPointer<Ipp64fc>(work), false, spec.forwardScale, window, conjugate, power);
        return;
    }
    FftRunWindowed(spec, src, window, conjugate, scratch, work);
    const int n = 1 << spec.order, half = n / 2;
    ippsPowerSpectr_64fc(scratch + half, power, n - half);
    if (half > 0) ippsPowerSpectr_64fc(scratch, power + n - half, half);
}

void FftRun(const IppsFFTSpec_C_64fc& spec, const Ipp64fc* src, Ipp64fc* dst, void* work, bool inverse) {
    FftRunScaled(spec, src, dst, work, inverse, inverse ? spec.inverseScale : spec.forwardScale);
}

}  // namespace qor_prim
