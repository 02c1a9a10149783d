#include "frame_handoff.h"

namespace qor {

int FrameHandoff::Advance() {
    std::unique_lock<std::mutex> hold(lock_);
    const int next = Next(writing_);
    // Even when shut: the reader's copy under way is short, and must not be overwritten.
    changed_.wait(hold, [&] { return reading_ != next; });
    writing_ = next;
    changed_.notify_all();
    return next;
}

FrameHandoff::Read FrameHandoff::BeginRead(int slot) {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait(hold, [&] { return shut_ || failed_ || writing_ != slot; });
    if (shut_) return Read::Shut;
    if (writing_ == slot) return Read::Failed;
    reading_ = slot;
    return Read::Held;
}

void FrameHandoff::EndRead() {
    std::lock_guard<std::mutex> hold(lock_);
    reading_ = -1;
    changed_.notify_all();
}

void FrameHandoff::Shut() {
    std::lock_guard<std::mutex> hold(lock_);
    shut_ = true;
    changed_.notify_all();
}

void FrameHandoff::Fail() {
    std::lock_guard<std::mutex> hold(lock_);
    failed_ = true;
    changed_.notify_all();
}

}  // namespace qor
