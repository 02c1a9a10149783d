// A bar on a terminal's stderr for work that takes more than a second.
#ifndef QOR_TOOL_PROGRESS_BAR_H
#define QOR_TOOL_PROGRESS_BAR_H

#include <chrono>

namespace qortool {

// Draws nothing when stderr is not a terminal, so that logs and pipes stay
// clean; the bar is wiped when it goes, and by Clear before a message.
class ProgressBar {
public:
    ProgressBar();
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    void Show(long long done, long long total);
    // Wipes the bar so that a message can take its line; Show draws it again.
    void Clear();

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point begin_ = Clock::now();
    bool terminal_;
    int percent_ = -1;
    bool shown_ = false;
};

}  // namespace qortool

#endif
