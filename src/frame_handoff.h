// The rolling hand-off of the real-time frames between the processing thread
// (the writer) and the application's thread (the reader) over 32 slots.
//
// The writer always stands on one slot, the one it builds, from the engine's
// construction on (so a reader can never find an unbuilt slot 0); moving on,
// it takes the next slot before it lets go of the present one, and waits
// only while the reader copies from that next slot. The reader waits while
// the writer stands on the slot it wants: it is paced to the frame rate and
// can never pass the writer. A reader 32 frames or more behind finds its
// slots overwritten by newer frames, in the old order, without notice.
//
// Shut (the engine stops): a waiting reader returns at once and learns it;
// the writer still waits for a copy under way, which is short. Fail (the
// unit is gone): a reader no longer waits for a frame being built. One mutex guards both positions; nothing
// else is locked inside it.
#ifndef QOR_FRAME_HANDOFF_H
#define QOR_FRAME_HANDOFF_H

#include <condition_variable>
#include <mutex>

namespace qor {

class FrameHandoff {
public:
    static constexpr int kSlots = 32;

    static int Next(int slot) { return slot + 1 == kSlots ? 0 : slot + 1; }

    // The writer: leaves its slot for the next one, once the reader is out of it.
    // Returns the new slot.
    int Advance();
    enum class Read { Held, Shut, Failed };
    // The reader: waits until `slot` is built and holds it (Held). Once shut,
    // Shut; once the unit failed, a slot not built yet is Failed at once.
    Read BeginRead(int slot);
    void EndRead();
    void Shut();
    // The unit failed: no reader waits for a frame any more.
    void Fail();

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int writing_ = 0;
    int reading_ = -1;
    bool shut_ = false;
    bool failed_ = false;
};

}  // namespace qor

#endif
