#include "view_settings.h"

#include <cmath>
#include <set>

namespace qortool {
namespace {

// A finite number, or the reason it is not.
std::string Number(const nlohmann::json& patch, const char* key, double* value) {
    if (!patch.contains(key)) return {};
    const nlohmann::json& v = patch[key];
    if (!v.is_number() || !std::isfinite(v.get<double>())) return std::string(key) + ": not a finite number";
    *value = v.get<double>();
    return {};
}

std::string Choice(const nlohmann::json& patch, const char* key, const char* yes, const char* no, bool* value) {
    if (!patch.contains(key)) return {};
    const nlohmann::json& v = patch[key];
    if (v == yes) {
        *value = true;
    } else if (v == no) {
        *value = false;
    } else {
        return std::string(key) + ": " + yes + " or " + no;
    }
    return {};
}

}  // namespace

bool ViewSettings::operator==(const ViewSettings& o) const {
    return serial == o.serial && center == o.center && span == o.span && rbw == o.rbw && vbw == o.vbw &&
           refLevel == o.refLevel && reject == o.reject && average == o.average && realTime == o.realTime;
}

std::string ApplyPatch(const nlohmann::json& patch, ViewSettings* settings) {
    if (!patch.is_object()) return "the settings are a JSON object";
    static const std::set<std::string> known{"serial", "center", "span", "start", "stop", "rbw",
                                             "vbw",    "ref",    "reject", "detector", "mode"};
    for (const auto& item : patch.items()) {
        if (known.count(item.key()) == 0) return "unknown setting: " + item.key().substr(0, 40);
    }
    ViewSettings s = *settings;
    if (patch.contains("serial")) {
        const nlohmann::json& v = patch["serial"];
        if (!v.is_number_integer() || v.get<long long>() < 0 || v.get<long long>() > 99999999) {
            return "serial: a serial number, or 0 for the first unit";
        }
        s.serial = v.get<int>();
    }
    const bool byEdges = patch.contains("start") || patch.contains("stop");
    if (byEdges && (patch.contains("center") || patch.contains("span"))) {
        return "give either center/span or start/stop";
    }
    if (byEdges && !(patch.contains("start") && patch.contains("stop"))) return "start and stop go together";
    double start = 0.0, stop = 0.0;
    for (const std::string& reason :
         {Number(patch, "center", &s.center), Number(patch, "span", &s.span), Number(patch, "start", &start),
          Number(patch, "stop", &stop), Number(patch, "rbw", &s.rbw), Number(patch, "vbw", &s.vbw),
          Number(patch, "ref", &s.refLevel), Choice(patch, "detector", "average", "minmax", &s.average),
          Choice(patch, "mode", "realtime", "sweep", &s.realTime)}) {
        if (!reason.empty()) return reason;
    }
    if (byEdges) {
        if (!(stop > start)) return "stop must lie above start";
        s.center = (start + stop) / 2.0;
        s.span = stop - start;
    }
    if (patch.contains("reject")) {
        if (!patch["reject"].is_boolean()) return "reject: true or false";
        s.reject = patch["reject"].get<bool>();
    }
    *settings = s;
    return {};
}

nlohmann::json ToJson(const ViewSettings& s) {
    return {{"serial", s.serial},
            {"center", s.center},
            {"span", s.span},
            {"rbw", s.rbw},
            {"vbw", s.vbw},
            {"ref", s.refLevel},
            {"reject", s.reject},
            {"detector", s.average ? "average" : "minmax"},
            {"mode", s.realTime ? "realtime" : "sweep"}};
}

}  // namespace qortool
