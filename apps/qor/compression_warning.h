// An overloaded IF (status 2 of a retrieval), told once per command.
#ifndef QOR_TOOL_COMPRESSION_WARNING_H
#define QOR_TOOL_COMPRESSION_WARNING_H

#include "progress_bar.h"
#include "qor_api.h"

namespace qortool {

// The measurement goes on: the data are delivered, but strong signals read
// low and spurious responses may show, which the user must know to judge them.
class CompressionWarning {
public:
    // Prints the status text on stderr the first time `status` is qorCompression.
    void Note(qorStatus status, ProgressBar& bar);

private:
    bool told_ = false;
};

}  // namespace qortool

#endif
