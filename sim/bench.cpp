#include "bench.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace qorsim {
namespace {

using nlohmann::json;

template <typename T>
T Get(const json& j, const char* key, T fallback) {
    auto it = j.find(key);
    return it == j.end() || it->is_null() ? fallback : it->get<T>();
}

SignalKind KindOf(const std::string& name) {
    if (name == "cw") return SignalKind::Cw;
    if (name == "am") return SignalKind::Am;
    if (name == "fm") return SignalKind::Fm;
    if (name == "burst") return SignalKind::Burst;
    if (name == "hop") return SignalKind::Hop;
    if (name == "usb") return SignalKind::Usb;
    if (name == "lsb") return SignalKind::Lsb;
    if (name == "keyed") return SignalKind::Keyed;
    throw std::runtime_error("unknown signal kind \"" + name + "\"");
}

SignalSpec ParseSignal(const json& j) {
    SignalSpec s;
    s.kind = KindOf(Get<std::string>(j, "kind", "cw"));
    s.frequency = Get(j, "frequency", s.frequency);
    s.level = Get(j, "level", s.level);
    s.depth = Get(j, "depth", s.depth);
    s.tone = Get(j, "tone", s.tone);
    s.deviation = Get(j, "deviation", s.deviation);
    s.period = Get(j, "period", s.period);
    s.duration = Get(j, "duration", s.duration);
    s.rise = Get(j, "rise", s.rise);
    s.phase = Get(j, "phase", s.phase);
    s.delay = Get(j, "delay", s.delay);
    s.frequencies = Get(j, "frequencies", s.frequencies);
    s.dwell = Get(j, "dwell", s.dwell);
    if (s.kind == SignalKind::Hop && (s.frequencies.empty() || s.dwell <= 0.0))
        throw std::runtime_error("a hop needs frequencies and a positive dwell");
    if (s.frequency < 0.0) throw std::runtime_error("negative signal frequency");
    return s;
}

FaultSpec ParseFaults(const json& j) {
    FaultSpec f;
    f.heldElsewhere = Get(j, "heldElsewhere", f.heldElsewhere);
    f.unknownFirmware = Get(j, "unknownFirmware", f.unknownFirmware);
    f.missingReplies = Get(j, "missingReplies", f.missingReplies);
    f.garbageReplies = Get(j, "garbageReplies", f.garbageReplies);
    f.stalled = Get(j, "stalled", f.stalled);
    return f;
}

UnitSpec ParseUnit(const json& j) {
    UnitSpec u;
    u.serial = Get<uint32_t>(j, "serial", 0);
    u.type = Get(j, "type", 1);
    if (u.type < 1 || u.type > 4) throw std::runtime_error("device type must be 1 to 4");
    if (u.serial == 0 || u.serial > 99999999u) throw std::runtime_error("serial must have 1 to 8 digits");
    u.onDeviceCalibration = Get(j, "onDeviceCalibration", u.type != 1);
    u.temperature = Get(j, "temperature", u.temperature);
    u.noiseFloor = Get(j, "noiseFloor", u.noiseFloor);
    u.voltageOption = Get(j, "voltageOption", u.voltageOption);
    u.voltage = Get(j, "voltage", u.voltage);
    u.reference = Get(j, "reference", u.reference);
    u.ovenCurrent = Get(j, "ovenCurrent", u.ovenCurrent);
    u.ovenWarmupMs = Get(j, "ovenWarmupMs", u.ovenWarmupMs);
    u.timebaseCorrection = Get(j, "timebaseCorrection", u.timebaseCorrection);
    if (auto it = j.find("signals"); it != j.end())
        for (const auto& s : *it) u.signals.push_back(ParseSignal(s));
    if (auto it = j.find("faults"); it != j.end()) u.faults = ParseFaults(*it);
    return u;
}

DutSpec ParseDut(const json& j) {
    DutSpec d;
    const auto kind = Get<std::string>(j, "kind", "thru");
    if (kind == "thru") d.kind = DutKind::Thru;
    else if (kind == "attenuator") d.kind = DutKind::Attenuator;
    else if (kind == "filter" || kind == "bandpass") d.kind = DutKind::Filter;
    else if (kind == "lowpass") d.kind = DutKind::LowPass;
    else if (kind == "notch") d.kind = DutKind::Notch;
    else throw std::runtime_error("unknown device under test \"" + kind + "\"");
    d.loss = Get(j, "loss", d.loss);
    d.center = Get(j, "center", d.center);
    d.bandwidth = Get(j, "bandwidth", d.bandwidth);
    d.cutoff = Get(j, "cutoff", d.cutoff);
    d.depth = Get(j, "depth", d.depth);
    if (d.bandwidth <= 0.0 || d.cutoff <= 0.0 || d.depth < 0.0)
        throw std::runtime_error("device under test needs a positive bandwidth and cutoff");
    return d;
}

GeneratorSpec ParseGenerator(const json& j) {
    GeneratorSpec g;
    g.serial = Get<uint32_t>(j, "serial", 0);
    if (g.serial == 0 || g.serial > 99999999u) throw std::runtime_error("generator serial must have 1 to 8 digits");
    g.family = Get(j, "family", g.family);
    g.cabledTo = Get<uint32_t>(j, "cabledTo", 0);
    g.calibrated = Get(j, "calibrated", g.calibrated);
    g.timebaseWord = Get(j, "timebaseWord", g.timebaseWord);
    g.timebaseCorrection = Get(j, "timebaseCorrection", g.timebaseCorrection);
    if (auto it = j.find("dut"); it != j.end()) g.dut = ParseDut(*it);
    return g;
}

}  // namespace

Bench ParseBench(const std::string& text) {
    json j;
    try {
        j = json::parse(text);
    } catch (const json::exception& e) {
        throw std::runtime_error(std::string("bench is not JSON: ") + e.what());
    }
    try {
        Bench b;
        const auto clock = Get<std::string>(j, "clock", "real");
        if (clock == "real") b.clockScale = 1.0;
        else if (clock == "fast") b.clockScale = kFastClockScale;
        else throw std::runtime_error("clock must be \"real\" or \"fast\"");
        const auto pacing = Get<std::string>(j, "pacing", "realtime");
        if (pacing == "realtime") b.realtime = true;
        else if (pacing == "immediate") b.realtime = false;
        else throw std::runtime_error("pacing must be \"realtime\" or \"immediate\"");
        const auto order = Get<std::string>(j, "listOrder", "unit");
        if (order == "unit") b.listOrder = ListOrder::ByUnit;
        else if (order == "reversed") b.listOrder = ListOrder::Reversed;
        else if (order == "mixed") b.listOrder = ListOrder::Mixed;
        else throw std::runtime_error("listOrder must be \"unit\", \"reversed\" or \"mixed\"");
        b.source = text;
        if (auto it = j.find("units"); it != j.end())
            for (const auto& u : *it) b.units.push_back(ParseUnit(u));
        if (auto it = j.find("generators"); it != j.end())
            for (const auto& g : *it) b.generators.push_back(ParseGenerator(g));
        for (size_t a = 0; a < b.units.size(); ++a)
            for (size_t c = a + 1; c < b.units.size(); ++c)
                if (b.units[a].serial == b.units[c].serial) throw std::runtime_error("two units with one serial");
        return b;
    } catch (const json::exception& e) {
        throw std::runtime_error(std::string("bad bench field: ") + e.what());
    }
}

DutSpec ParseDutJson(const std::string& text) {
    try {
        return ParseDut(json::parse(text));
    } catch (const json::exception& e) {
        throw std::runtime_error(std::string("bad device under test: ") + e.what());
    }
}

Bench ReadBenchFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read bench file " + path);
    std::stringstream text;
    text << in.rdbuf();
    return ParseBench(text.str());
}

}  // namespace qorsim
