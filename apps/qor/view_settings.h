// The settings of the live view as the page sends them: checked, merged, and
// told back as JSON.
#ifndef QOR_TOOL_VIEW_SETTINGS_H
#define QOR_TOOL_VIEW_SETTINGS_H

#include <nlohmann/json.hpp>
#include <string>

namespace qortool {

struct ViewSettings {
    int serial = 0;  // 0: the first unit on the bus
    double center = 100e6;
    double span = 40e6;
    double rbw = 30e3;
    double vbw = 30e3;
    double refLevel = -20.0;
    bool reject = true;
    bool average = false;   // detector: average, else min/max
    bool realTime = false;  // mode: real time, else sweep

    bool operator==(const ViewSettings& other) const;
};

// The height of the persistence image in dB and the frame rate asked for in real time.
constexpr double kFrameScaleDb = 100.0;
constexpr int kFrameRate = 30;

// Applies the fields of `patch` (a JSON object: serial, center, span, start
// and stop together, rbw, vbw, ref, reject, detector "minmax"/"average",
// mode "sweep"/"realtime") to `settings`. Returns the reason when the patch
// is malformed, and then leaves `settings` as it was; an empty string when
// it was taken. Whether the unit accepts the values is the library's to say.
std::string ApplyPatch(const nlohmann::json& patch, ViewSettings* settings);

nlohmann::json ToJson(const ViewSettings& settings);

}  // namespace qortool

#endif
