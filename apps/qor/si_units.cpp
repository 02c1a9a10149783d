#include "si_units.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "session.h"

namespace qortool {

std::optional<double> ParseSi(const std::string& text) {
    if (text.empty()) return std::nullopt;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || !std::isfinite(value)) return std::nullopt;
    std::string rest(end);
    if (rest.size() >= 2 && (rest.compare(rest.size() - 2, 2, "Hz") == 0 || rest.compare(rest.size() - 2, 2, "hz") == 0)) {
        rest.erase(rest.size() - 2);
    }
    double scale = 1.0;
    if (rest == "k" || rest == "K") {
        scale = 1e3;
    } else if (rest == "M") {
        scale = 1e6;
    } else if (rest == "G" || rest == "g") {
        scale = 1e9;
    } else if (!rest.empty()) {
        return std::nullopt;
    }
    return value * scale;
}

double ParseFrequency(const std::string& text, const char* option) {
    const auto value = ParseSi(text);
    if (!value) throw ToolError(std::string(option) + ": not a frequency: " + text);
    return *value;
}

std::string FormatHz(double hz, int digits) {
    static const struct {
        double scale;
        const char* unit;
    } kUnits[] = {{1e9, "GHz"}, {1e6, "MHz"}, {1e3, "kHz"}, {1.0, "Hz"}};
    for (const auto& u : kUnits) {
        if (std::fabs(hz) >= u.scale || u.scale == 1.0) {
            char text[64];
            std::snprintf(text, sizeof text, "%.*g %s", digits, hz / u.scale, u.unit);
            return text;
        }
    }
    return {};
}

}  // namespace qortool
