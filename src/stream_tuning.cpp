#include "stream_tuning.h"

#include "analyzer_link.h"
#include "corrections.h"
#include "settings.h"

namespace qor {
namespace {

constexpr double kHighIf = 10694444.444;
constexpr double kLowIf = 2916666.6667;
constexpr double kDividedBelowHz = 1.5e8;

}  // namespace

double PlanStream(AnalyzerLink* link, DeviceCorr* corr, double centerHz, bool highIf) {
    const int band = corr->BandOf(centerHz);
    TuningPlan& plan = link->Plan();
    LoTuning& record = plan.recordA;
    if (link->Family().IsOrsk()) record.path = OrskPathForBand(band);
    return plan.PlanTuning(centerHz, highIf ? kHighIf : kLowIf, true, -1, record, band);
}

StreamTuning TuneStream(AnalyzerLink* link, DeviceCorr* corr, const Settings& s, double centerHz, bool highIf) {
    const int band = corr->BandOf(centerHz);
    const LoTuning& record = link->Plan().recordA;
    const bool orsk = link->Family().IsOrsk();
    const double residual = PlanStream(link, corr, centerHz, highIf);
    link->SetPreamp(s.preamp);
    if (orsk) link->SetOrskPath(record.path);
    if (centerHz < kDividedBelowHz) {
        link->ProgramSynthDivided(record.integer, record.fraction, record.modulus, record.dividerLog2);
    } else {
        link->ProgramSynth(record.integer, record.fraction, record.modulus, record.dividerLog2);
    }
    link->SetPathFilter(highIf ? 0 : 1, band);
    link->SetGainIndex(s.gainUsed);
    link->SetAttenSteps(s.attenUsed);
    return {residual, band == 2 || band == 3};
}

}  // namespace qor
