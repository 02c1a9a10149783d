// `qor realtime`: run the real-time mode for some frames and write its
// persistence image (with the frame sweep over it) as a PNG, one PNG per
// frame into a folder, and the last frame sweep as CSV.
#ifndef QOR_TOOL_REALTIME_COMMAND_H
#define QOR_TOOL_REALTIME_COMMAND_H

#include <string>

namespace qortool {

struct RealTimeOptions {
    int serial = 0;
    std::string center, span;  // SI text
    std::string rbw = "1k";
    double refLevel = -20.0;
    double frameScale = 100.0;  // dB the image covers below the reference level
    int frameRate = 30;
    double overlap = 0.125;     // step between FFTs as a fraction of their length
    std::string detector = "minmax";
    int frames = 40;            // the persistence spans 39 frames
    std::string png;            // the last frame's image
    std::string pngDir;         // one image per frame
    std::string sweepCsv;       // the last frame sweep
};

int RunRealTime(const RealTimeOptions& options);

}  // namespace qortool

#endif
