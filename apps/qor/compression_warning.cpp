#include "compression_warning.h"

#include <cstdio>

namespace qortool {

void CompressionWarning::Note(qorStatus status, ProgressBar& bar) {
    if (status != qorCompression || told_) return;
    bar.Clear();
    std::fprintf(stderr, "warning: %s; a higher --ref avoids it\n", qorGetErrorString(status));
    told_ = true;
}

}  // namespace qortool
