#include "unit_model.h"

#include <cmath>

namespace qorsim {

UnitModel::UnitModel(uint32_t serial, int deviceType) : serial_(serial), type_(deviceType) {}

double UnitModel::Crossover() const { return 8.448e9; }

FrontEnd ModelFrontEnd(const UnitModel& model, double frequency, int band, bool highIf) {
    FrontEnd fe;
    fe.highIf = highIf;
    fe.ifCenter = (highIf ? 22.0 : 6.0) * fe.sampleRate;
    if (model.UnitFamily() == Family::Velm) {
        fe.band = band >= 0 ? band : (frequency < 150e6 ? 0 : 1);
        return fe;
    }
    fe.band = band >= 0 ? band : OrskBandOf(frequency, model.Crossover());
    if (fe.band >= 2) fe.firstLo = kFirstLo[(fe.band == 2 || fe.band == 4) ? 0 : 3];
    return fe;
}

double UnitModel::IfFilterDb(bool, double b) const {
    const double x = std::fabs(b) / 250e3;
    return -3.0 * std::pow(x, 8.0);
}

double UnitModel::BandFilterDb(const FrontEnd& fe, double rf) const {
    double lowEdge = 0.0, highEdge = 1e12;
    if (UnitFamily() == Family::Velm) {
        if (fe.band == 0) highEdge = 160e6;
    } else if (fe.band == 0) {
        highEdge = 160e6;
    } else if (fe.band == 1) {
        lowEdge = 120e6;
        highEdge = 4.1e9;
    } else if (fe.firstLo > 0.0 && fe.band <= 3) {
        lowEdge = 3.9e9;
        highEdge = 8.7e9;
    } else {
        lowEdge = 8.2e9;
        highEdge = 13.2e9;
    }
    if (rf >= lowEdge && rf <= highEdge) return 0.0;
    return -70.0;
}

double UnitModel::PathGainDb(const FrontEnd& fe, double rf, double b, double) const {
    const double step = UnitFamily() == Family::Orsk ? 10.0 : 5.0;
    double g = -5.0 - step * fe.atten;
    g += fe.gain == 0 ? -16.0 : fe.gain == 2 ? 12.0 : 0.0;
    if (fe.preamp) g += 18.0;
    if (!fe.highIf) g += 10.0;
    return g + IfFilterDb(fe.highIf, b) + BandFilterDb(fe, rf);
}

double UnitModel::NoiseGainDb(const FrontEnd& fe, double temperature) const {
    const double first = fe.lo - fe.ifCenter;
    double rf = first;
    if (fe.firstLo > 0.0) rf = fe.band <= 3 ? fe.firstLo - std::fabs(first) : fe.firstLo + std::fabs(first);
    return PathGainDb(fe, std::fabs(rf), 0.0, temperature) - BandFilterDb(fe, std::fabs(rf));
}

}  // namespace qorsim
