#include "tg_synth.h"

#include <algorithm>
#include <cmath>

namespace qor {
namespace {

constexpr double kHysteresisDb = 0.7;
constexpr int kVelmCodes = 32;
constexpr int kOrskCodes = 64;

// Reads stay inside the memory whatever the frequency: a table's index past
// its end reads on into the memory, as the layout lies, but never beyond it.
int16_t I16At(const uint8_t* eeprom, int offset) {
    offset = std::clamp(offset, 0, kTgMemoryBytes - 2);
    return static_cast<int16_t>(eeprom[offset] | eeprom[offset + 1] << 8);
}

uint8_t U8At(const uint8_t* eeprom, int offset) { return eeprom[std::clamp(offset, 0, kTgMemoryBytes - 1)]; }

int RoundIndex(double x) { return static_cast<int>(std::floor(x + 0.5)); }

// The best code of `count`, tried from 0 up; a later code must be strictly
// better, and the code in use is favoured by the hysteresis. `worst` is the
// error a code must beat to be taken at all (code 0 stands otherwise).
template <typename Error>
int BestCode(int count, int previous, double worst, Error error) {
    int code = 0;
    double best = worst;
    for (int c = 0; c < count; ++c) {
        double e = error(c);
        if (c == previous) e -= kHysteresisDb;
        if (e < best) {
            best = e;
            code = c;
        }
    }
    return code;
}

// Base level of the 4.4 GHz family at code 0: table and entry by frequency.
double VelmBase(const uint8_t* eeprom, double f) {
    struct Row {
        double below;
        int offset;
        double origin, spacing;
        int last;
    };
    int offset, index;
    if (f < 28e6) {
        offset = 68;
        index = static_cast<int>(std::floor(f * 1e-6 - 0.5));
    } else {
        static constexpr Row rows[] = {{140e6, 124, 30e6, 5e6, 21},    {275e6, 168, 140e6, 1e7, -1},
                                       {550e6, 196, 280e6, 1e7, -1},   {1.1e9, 252, 550e6, 1e7, -1},
                                       {2.2e9, 364, 1.1e9, 1e7, -1},   {HUGE_VAL, 588, 2.2e9, 1e7, -1}};
        const Row* row = rows;
        while (!(f < row->below)) ++row;
        offset = row->offset;
        index = RoundIndex((f - row->origin) / row->spacing);
        if (row->last >= 0) index = std::min(index, row->last);
    }
    index = std::max(index, 0);
    double base = I16At(eeprom, offset + 2 * index) * 0.01;
    if (f >= 28e6) base -= 0.7 - f * 1e-10;
    return base;
}

// Base level of the 12.4 GHz family, interpolated in single precision, with
// the family's adjustment.
double OrskBase(const uint8_t* eeprom, double f) {
    struct Row {
        double below;
        int offset, count;
        double origin, spacing;
    };
    static constexpr Row rows[] = {{16e6, 68, 16, 0.999999e6, 1e6},  {140e6, 84, 24, 20e6, 5e6},
                                   {275e6, 108, 14, 140e6, 1e7},     {550e6, 122, 28, 280e6, 1e7},
                                   {1.1e9, 150, 56, 550e6, 1e7},     {2.2e9, 206, 112, 1.1e9, 1e7},
                                   {4e9, 318, 182, 2.2e9, 1e7},      {7.2e9, 500, 322, 4e9, 1e7},
                                   {HUGE_VAL, 822, 582, 7.2e9, 1e7}};
    const Row* row = rows;
    while (!(f < row->below)) ++row;
    float x;
    if (row == rows) {
        x = static_cast<float>(f * 1e-6 - 0.999999);
    } else {
        x = static_cast<float>((f - row->origin) / row->spacing);
    }
    int i = static_cast<int>(std::floor(x));
    if (i < 0) i = 0;
    i = std::min(i, row->count - 1);
    const int j = std::min(i + 1, row->count - 1);
    const float w = x - static_cast<float>(i);
    const float t = (1.0f - w) * U8At(eeprom, row->offset + i) + w * U8At(eeprom, row->offset + j);
    double base = t * -0.1f;
    if (f >= 7.2e9) {
        base -= 0.7;
    } else if (f >= 3.2e9) {
        base -= 0.3;
    } else if (f >= 2.2e9) {
        base -= (3.2e9 - f) * 0.4 / 1e9 + 0.3;
    } else if (f >= 16e6) {
        base -= 0.7;
    } else if (f < 150e3) {
        base += 0.4;
    } else if (f < 250e3) {
        base += 0.2;
    }
    return base;
}

}  // namespace

int UncalibratedTgCode(double amplitude) { return static_cast<int>(-5.0 - amplitude); }

int VelmTgCode(const uint8_t* eeprom, double f, double amplitude, int previous) {
    const double base = VelmBase(eeprom, f);
    // The five binary attenuator stages, each measured every 20 MHz.
    const int j = std::clamp(static_cast<int>(f / 2e7), 0, 221);
    double stage[5];
    for (int b = 0; b < 5; ++b) stage[b] = I16At(eeprom, 1032 + 444 * b + 2 * j);
    const double d = amplitude - base;
    return BestCode(kVelmCodes, previous, HUGE_VAL, [&](int c) {
        double sum = 0.0;
        for (int b = 0; b < 5; ++b) {
            if (c & (1 << b)) sum += stage[b];
        }
        return std::fabs(d - 0.01 * sum);
    });
}

int OrskTgCode(const uint8_t* eeprom, double f, double amplitude, int previous) {
    const double base = OrskBase(eeprom, f);
    // 0.5 dB per code, with the error of each group of codes measured per
    // 100 MHz row.
    const int row = std::clamp(static_cast<int>(std::floor(f / 1e8)), 0, (kTgMemoryBytes - 1404) / 16 - 1);
    double r[9];
    for (int k = 0; k < 9; ++k) r[k] = U8At(eeprom, 1404 + 16 * row + k) * 0.02 - 2.56;
    const auto attenuation = [&r](int c) {
        double a = -0.5 * c;
        if (c == 0) {
            a += r[0];
        } else if (c < 8) {
            const int m = c - 1;
            a += (6 - m) / 6.0 * r[1] + m / 6.0 * r[2];
        } else if (c < 16) {
            a += r[3];
        } else if (c < 24) {
            a += (c - 16) / 7.0 * r[3];
        } else {
            a += r[4 + (c - 24) / 8];
        }
        return a;
    };
    return BestCode(kOrskCodes, previous, 100.0,
                    [&](int c) { return std::fabs(base + 8.0 + attenuation(c) - amplitude); });
}

int TgAmplitudeCode(const TgMemory& memory, double f, double amplitude, int previous) {
    if (!memory.calibrated) return UncalibratedTgCode(amplitude);
    return memory.orsk ? OrskTgCode(memory.eeprom, f, amplitude, previous)
                       : VelmTgCode(memory.eeprom, f, amplitude, previous);
}

void BuildAmplitudeList(AmplitudeList& list, const TgMemory& memory, double amplitude, double start, double step,
                        int points) {
    int previous = -1, last = -1, run = 0, code = -1;
    for (int i = 0; i < points; ++i) {
        code = TgAmplitudeCode(memory, start + i * step, amplitude, previous);
        if (code != previous && last < kTgListEntries - 1) {
            if (last >= 0) {
                list.run[last] = run;
                list.code[last] = previous;
            }
            previous = code;
            ++last;
            run = 1;
        } else {
            ++run;
        }
    }
    if (last >= 0) {
        list.run[last] = run + 1;
        list.code[last] = code;
    }
    list.length = last + 1;
    list.points = points;
}

}  // namespace qor
