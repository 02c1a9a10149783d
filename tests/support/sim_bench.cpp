#include "sim_bench.h"

#include <nlohmann/json.hpp>

namespace simbench {
namespace {

using Value = nlohmann::ordered_json;

template <typename T>
void PutIfSet(Value& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = *value;
}

Value SignalJson(const Signal& s) {
    Value out = {{"kind", s.kind}, {"frequency", s.frequency}, {"level", s.level}};
    PutIfSet(out, "depth", s.depth);
    PutIfSet(out, "deviation", s.deviation);
    PutIfSet(out, "tone", s.tone);
    PutIfSet(out, "period", s.period);
    PutIfSet(out, "duration", s.duration);
    if (!s.frequencies.empty()) out["frequencies"] = s.frequencies;
    PutIfSet(out, "dwell", s.dwell);
    PutIfSet(out, "rise", s.rise);
    return out;
}

Value UnitJson(const Unit& u) {
    Value out = {{"serial", u.serial}, {"type", u.type}};
    PutIfSet(out, "temperature", u.temperature);
    PutIfSet(out, "noiseFloor", u.noiseFloor);
    PutIfSet(out, "onDeviceCalibration", u.onDeviceCalibration);
    PutIfSet(out, "voltage", u.voltage);
    PutIfSet(out, "timebaseCorrection", u.timebaseCorrection);
    if (u.heldElsewhere) out["faults"] = {{"heldElsewhere", true}};
    if (!u.signals.empty()) {
        out["signals"] = Value::array();
        for (const Signal& s : u.signals) out["signals"].push_back(SignalJson(s));
    }
    return out;
}

Value GeneratorJson(const Generator& g) {
    Value out = {{"serial", g.serial}, {"family", g.family}, {"cabledTo", g.cabledTo}};
    if (g.attenuator) out["dut"] = {{"kind", "attenuator"}, {"loss", *g.attenuator}};
    return out;
}

}  // namespace

Signal Cw(double frequency, double level) {
    Signal s;
    s.frequency = frequency;
    s.level = level;
    return s;
}

std::string Json(const Bench& bench) {
    Value out = {{"clock", bench.clock}, {"pacing", bench.pacing}, {"listOrder", bench.listOrder}};
    out["units"] = Value::array();
    for (const Unit& u : bench.units) out["units"].push_back(UnitJson(u));
    if (!bench.generators.empty()) {
        out["generators"] = Value::array();
        for (const Generator& g : bench.generators) out["generators"].push_back(GeneratorJson(g));
    }
    return out.dump();
}

}  // namespace simbench
