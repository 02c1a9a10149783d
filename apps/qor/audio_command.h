// `qor audio`: listen to a carrier. AM, FM, upper or lower sideband or CW,
// as raw signed 16-bit mono at 30382 samples/s on stdout, or a WAV file.
#ifndef QOR_TOOL_AUDIO_COMMAND_H
#define QOR_TOOL_AUDIO_COMMAND_H

#include <optional>
#include <string>

namespace qortool {

struct AudioOptions {
    int serial = 0;
    std::string center;     // SI text
    std::string mode;       // am | fm | usb | lsb | cw
    std::string bandwidth;  // SI text; empty: the mode's own
    std::optional<double> seconds;  // unset: until interrupted
    std::string wav;        // empty: raw samples on stdout
    std::optional<double> refLevel;  // unset: the unit's preset
};

int RunAudio(const AudioOptions& options);

}  // namespace qortool

#endif
