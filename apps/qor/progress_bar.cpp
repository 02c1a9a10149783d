#include "progress_bar.h"

#include <cstdio>

#include <unistd.h>

namespace qortool {

ProgressBar::ProgressBar() : terminal_(isatty(STDERR_FILENO) != 0) {}

void ProgressBar::Show(long long done, long long total) {
    const double elapsed = std::chrono::duration<double>(Clock::now() - begin_).count();
    if (!terminal_ || elapsed < 1.0 || total <= 0) return;
    const int percent = static_cast<int>(100 * done / total);
    if (percent == percent_) return;
    percent_ = percent;
    const int width = 40, filled = width * percent / 100;
    std::fprintf(stderr, "\r[%.*s%*s] %3d%%", filled, "########################################", width - filled, "",
                 percent);
    shown_ = true;
}

void ProgressBar::Clear() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", 50, "");
    shown_ = false;
    percent_ = -1;
}

ProgressBar::~ProgressBar() { Clear(); }

}  // namespace qortool
