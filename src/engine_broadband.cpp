#include "engine_broadband.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "ipps.h"
#include "level_choice.h"
#include "settings.h"

namespace qor {
namespace {

constexpr int kGridStepMHz = 3;
constexpr int kPieceLimit = 250;  // points of a piece: a reply of about 500 bytes
constexpr int kTableBytes = 2 * VelmDetectorSweep::kMaxPoints;
// Margins of the 12.4 GHz family: the detector's IF in grid points.
constexpr int kMarginOrskB = 21;
constexpr int kMarginOther = 12;
constexpr int kSettingHigh = 41;  // detector model of the high IF attenuator setting
constexpr int kSettingLow = 11;
// Codes of the high setting between which its reading hands over to the low one.
constexpr int kBlendFrom = 600;
constexpr int kBlendTo = 700;
// 4.4 GHz family: the detector's dB per code and the level of code 0.
constexpr double kVelmDbPerCode = 0.13427734375;
constexpr double kVelmCodeOffset = -77.0;
constexpr double kVelmLowestLoMHz = 150.0;
constexpr int kSmoothHalf = 4;
constexpr double kSmoothWeights[2 * kSmoothHalf + 1] = {0.04, 0.08, 0.12, 0.16, 0.2, 0.16, 0.12, 0.08, 0.04};
constexpr int kSmoothEdge = 9;  // bins at each end that keep their raw value

uint16_t BigEndianAt(const uint8_t* bytes, int i) {
    return static_cast<uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
}

}  // namespace

BroadbandPlan PlanBroadband(double start, double stop, int deviceType) {
    BroadbandPlan p;
    p.margin = deviceType == DeviceTypeOrskB ? kMarginOrskB : kMarginOther;
    p.startMHz = static_cast<int32_t>(std::floor(start * 1e-6 + 0.5));
    p.stopMHz = static_cast<int32_t>(std::floor(stop * 1e-6 + 0.5));
    p.sweepLength = p.stopMHz - p.startMHz + 1;
    const int32_t q = p.startMHz / kGridStepMHz;
    p.firstGrid = kGridStepMHz * (q - p.margin) + 2;
    p.points = 2 * p.margin + 1 + (p.stopMHz - p.startMHz + 2) / kGridStepMHz;
    p.points = std::min(p.points, BroadbandPlan::kMaxPoints);
    p.chunkCount = std::clamp((p.points + kPieceLimit - 1) / kPieceLimit, 2, BroadbandPlan::kMaxPieces);
    const int32_t chunkLen = p.points / p.chunkCount;
    p.chunkStart.resize(static_cast<size_t>(p.chunkCount));
    p.chunkPoints.resize(static_cast<size_t>(p.chunkCount));
    for (int32_t i = 0; i < p.chunkCount; ++i) {
        p.chunkStart[i] = p.firstGrid + kGridStepMHz * chunkLen * i;
        p.chunkPoints[i] = i + 1 < p.chunkCount ? chunkLen : p.points - chunkLen * i;
    }
    return p;
}

void SpreadLevels(const double* levels, int count, int firstBin, double* trace, int length) {
    for (int i = 0; i < length; ++i) {
        const double u = std::max(i - firstBin, 0) / static_cast<double>(kGridStepMHz);
        const int c = std::min(static_cast<int>(u), count - 2);
        const double t = u - c;
        trace[i] = (1.0 - t) * levels[c] + t * levels[c + 1];
    }
}

VelmDetectorSweep PlanVelmDetectorSweep(double start, double stop) {
    VelmDetectorSweep s;
    s.first = static_cast<int32_t>(std::max(std::trunc(start * 1e-6 - 12.0), kVelmLowestLoMHz));
    s.last = static_cast<int32_t>(std::trunc(stop * 1e-6 + 15.0));
    s.last -= (s.last - s.first) % kGridStepMHz;
    s.points = std::min((s.last - s.first) / kGridStepMHz, VelmDetectorSweep::kMaxPoints);
    s.last = s.first + kGridStepMHz * s.points;
    return s;
}

double VelmBinLevel(const double* gridA, const double* gridB, int points, int32_t first, double start, int i) {
    const double x = i + start * 1e-6 + 1.0;
    const auto at = [points](const double* grid, int k) { return grid[std::clamp(k, 0, points - 1)]; };
    // The strongest of the two LOs 9 to 12 MHz below, the same above, and the weaker side.
    const auto bothSides = [&at](const double* grid, int k) {
        return std::min(std::max(at(grid, k - 4), at(grid, k - 3)), std::max(at(grid, k + 3), at(grid, k + 4)));
    };
    const int k = static_cast<int>(std::floor((x - (first + 1)) / kGridStepMHz + 0.5));
    const int k2 = std::max(0, static_cast<int>(std::floor((x - 1.0 - (first + 1)) / kGridStepMHz + 0.5)));
    return std::max(bothSides(gridA, k), bothSides(gridB, k2));
}

void SmoothVelmTrace(const double* raw, double* trace, int length) {
    for (int i = 0; i < length; ++i) {
        if (i < kSmoothEdge || i > length - 1 - kSmoothEdge) {
            trace[i] = raw[i];
            continue;
        }
        double sum = 0.0;
        for (int d = -kSmoothHalf; d <= kSmoothHalf; ++d) sum += kSmoothWeights[d + kSmoothHalf] * raw[i + d];
        trace[i] = sum;
    }
}

BroadbandSweepEngine::BroadbandSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link,
                                           CalibrationStore* calibration, SpectrumCore* core, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, core, sweepInfo),
      corr(calibration->corr.get()),
      plan(PlanBroadband(settings->start, settings->stop, link->Family().Type())) {
    sweepInfo->binSize = 1000000.0;
    sweepInfo->startFreq = plan.startMHz * 1e6;
    sweepInfo->sweepLength = plan.sweepLength;
    sweepInfo->blocksPerStep = 1;

    const int length = std::max(plan.sweepLength, 0);
    tableHigh.Allocate(kTableBytes);
    tableLow.Allocate(kTableBytes);
    // The spread reads up to level length / 3 + 1.
    const int levelCount = std::max(BroadbandPlan::kMaxPoints, length / kGridStepMHz + 2);
    levels.Allocate(levelCount);
    std::fill_n(levels.get(), levelCount, TraceExchange::kUnmeasured);
    exchange.Configure(kRequestedDetectorSweeps, plan.sweepLength, settings->logScale);
    if (link->Family().IsVelm()) {
        levelsB.Allocate(VelmDetectorSweep::kMaxPoints);
        gridCorr.Allocate(VelmDetectorSweep::kMaxPoints);
        raw.Allocate(length);
    } else {
        codesHigh.Allocate(BroadbandPlan::kMaxPoints);
        codesLow.Allocate(BroadbandPlan::kMaxPoints);
    }
    StartThread([this] { Run(); });
}

void BroadbandSweepEngine::PrepareLevel(bool velm) {
    Settings& s = *settings;
    if (!TakeConfiguredLevel(s)) {
        // The detector's own automatic level, by family.
        s.gainUsed = 1;
        if (velm) {
            s.preamp = s.refLevel <= -19.9;
            s.attenUsed = s.refLevel > 10.0 ? 3 : s.refLevel > 5.0 ? 2 : s.refLevel > 0.0 ? 1 : 0;
        } else {
            s.attenUsed = std::clamp(static_cast<int>(std::ceil(s.refLevel * 0.1 + 1.9)), 0, 3);
        }
    }
    // The corrections and the detector's curves drift with temperature: a
    // temperature stored by an earlier mode, or none at all, would put every
    // level of the 12.4 GHz family off by a few tenths of a dB.
    corr->temperature = link->ReadTemperature();
    if (velm) {
        corr->preampOn = s.preamp;
        link->SetPreamp(s.preamp);
    }
}

void BroadbandSweepEngine::Run() {
    const bool velm = link->Family().IsVelm();
    link->RestoreSynthModulus();
    PrepareLevel(velm);
    if (velm) {
        RunVelm();
        return;
    }
    link->SelectDetectorPath();
    link->SetAttenSteps(settings->attenUsed);
    RunOrsk();
}

void BroadbandSweepEngine::EndSweep() {
    chunk = 0;
    exchange.FinishSweep();
}

void BroadbandSweepEngine::OrskLevels(int fresh) {
    const int reach = 2 * plan.margin;
    const int att = settings->attenUsed;
    for (int j = 0; j < fresh && done < BroadbandPlan::kMaxPoints; ++j) {
        const int p = used + j;
        const double f = plan.LevelMHz(p) * 1e6;
        // LO p lies 3 x margin MHz below f, LO p + 2 x margin as far above:
        // an image shows in one of them only, so the weaker reading, the
        // smaller code, counts.
        const uint16_t high = std::min(codesHigh[p], codesHigh[p + reach]);
        const uint16_t low = std::min(codesLow[p], codesLow[p + reach]);
        const double a = corr->DetectorPowerRatio(f, att, kSettingHigh, high, 0);
        const double b = corr->DetectorPowerRatio(f, att, kSettingLow, low, 0);
        // The sensitive range (high IF attenuator setting) alone until it nears
        // its top, then the other range.
        const double w = high < kBlendFrom ? 0.0 : high < kBlendTo ? (high - kBlendFrom) * 0.01 : 1.0;
        levels[done++] = 10.0 * std::log10((1.0 - w) * a + w * b);
    }
    used += std::max(fresh, 0);
}

void BroadbandSweepEngine::RunOrsk() {
    while (running) {
        if (chunk == 0) {
            if (!exchange.AwaitRequest() || !running) break;
            fetched = used = done = 0;
        }
        const int first = plan.chunkStart[chunk];
        const int n = plan.chunkPoints[chunk];
        const int last = first + kGridStepMHz * n;
        // A short reply leaves the readings of the last sweep in the tables.
        link->SetIFAttenHigh();
        link->ReadSweepTable(first, last, tableHigh.get());
        link->SetIFAttenLow();
        link->ReadSweepTable(first, last, tableLow.get());
        if (link->CommandChannelFailed()) exchange.FailUsb();
        for (int i = 0; i < n && fetched + i < BroadbandPlan::kMaxPoints; ++i) {
            codesHigh[fetched + i] = BigEndianAt(tableHigh.get(), i);
            codesLow[fetched + i] = BigEndianAt(tableLow.get(), i);
        }
        fetched = std::min(fetched + n, BroadbandPlan::kMaxPoints);
        OrskLevels(fetched - 2 * plan.margin - used);
        exchange.WriteTraces([this](double* trace, double*) {
            SpreadLevels(levels.get(), BroadbandPlan::kMaxPoints, plan.LevelMHz(0) - plan.startMHz, trace,
                         plan.sweepLength);
        });
        if (++chunk == plan.chunkCount) EndSweep();
    }
}

void BroadbandSweepEngine::RunVelm() {
    const Settings& s = *settings;
    link->SetDividerFour();
    link->SetPathFilter(0, 1);
    link->SetAttenSteps(s.attenUsed);
    const VelmDetectorSweep sweep = PlanVelmDetectorSweep(s.start, s.stop);
    for (int k = 0; k < sweep.points; ++k) {
        gridCorr[k] = corr->GetCorrection(s.start + k * 3e6, s.attenUsed, 1, 1, 0.0, 1);
    }
    while (running) {
        if (!exchange.AwaitRequest() || !running) break;
        link->ReadSweepTable(sweep.first, sweep.last, tableHigh.get());
        link->ReadSweepTable(sweep.first + 1, sweep.last + 1, tableLow.get());
        if (link->CommandChannelFailed()) exchange.FailUsb();
        for (int k = 0; k < sweep.points; ++k) {
            levels[k] = BigEndianAt(tableHigh.get(), k) * kVelmDbPerCode + gridCorr[k] + kVelmCodeOffset;
            levelsB[k] = BigEndianAt(tableLow.get(), k) * kVelmDbPerCode + gridCorr[k] + kVelmCodeOffset;
        }
        if (sweep.points > 0) {
            for (int i = 0; i < plan.sweepLength; ++i) {
                raw[i] = VelmBinLevel(levels.get(), levelsB.get(), sweep.points, sweep.first, s.start, i);
            }
        }
        exchange.WriteTraces([this](double* trace, double*) { SmoothVelmTrace(raw.get(), trace, plan.sweepLength); });
        EndSweep();
    }
}

}  // namespace qor
