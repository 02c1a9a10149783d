#include "iq_circular_buffer.h"

#include <algorithm>
#include <cassert>

#include "rbw_filter.h"

namespace qor {

void IQCircularBuffer::Resize(int count) {
    std::lock_guard<std::mutex> guard(lock);
    storage.assign(static_cast<std::size_t>(std::max(count, 0)), Ipp32fc{0.0f, 0.0f});
    readIndex = 0;
    writeIndex = 0;
    consumed = written;
}

int IQCircularBuffer::Available() const {
    const int stored = writeIndex.load() - readIndex.load();
    return stored < 0 ? stored + Capacity() : stored;
}

void IQCircularBuffer::Write(const Ipp32fc* source, int count, int32_t seconds, int32_t milliseconds,
                             bool clipped) {
    std::lock_guard<std::mutex> guard(lock);
    const int capacity = Capacity();
    assert(count <= Capacity() && "count <= Capacity()");
    // Filling the buffer to the last sample counts as an overrun already:
    // equal indices must mean empty.
    if (capacity - Available() <= count) {
        readIndex = 0;
        writeIndex = 0;
        overrunFlag = 1;
        consumed = written;
    }
    if (clipped) {
        if (clippedTo <= consumed) clippedFrom = written;
        clippedTo = written + count;
    }
    written += count;
    if (Available() == 0) {
        firstSeconds = seconds;
        firstMilliseconds = milliseconds;
    }
    const int at = writeIndex;
    const int room = capacity - at;
    if (count <= room) {
        std::copy_n(source, count, storage.data() + at);
        writeIndex = at + count == capacity ? 0 : at + count;
    } else {
        std::copy_n(source, room, storage.data() + at);
        std::copy_n(source + room, count - room, storage.data());
        writeIndex = count - room;
    }
}

void IQCircularBuffer::Read(Ipp32fc* destination, int count, int* received, int decimation, bool* clipped) {
    std::lock_guard<std::mutex> guard(lock);
    const int capacity = Capacity();
    const int taken = std::min(count, Available());
    *received = taken;
    const int64_t from = std::max(consumed, clippedFrom);
    consumed += taken;
    if (clipped) *clipped = from < std::min(consumed, clippedTo);
    const int at = readIndex;
    const int room = capacity - at;
    if (taken <= room) {
        std::copy_n(storage.data() + at, taken, destination);
        readIndex = at + taken == capacity ? 0 : at + taken;
    } else {
        std::copy_n(storage.data() + at, room, destination);
        std::copy_n(storage.data(), taken - room, destination + room);
        readIndex = taken - room;
    }
    // The stamp belongs to the oldest sample still stored.
    const auto step = static_cast<int64_t>(static_cast<double>(decimation) * taken * 1000.0 / kSampleRate);
    const int64_t milliseconds = firstMilliseconds + step;
    firstSeconds = static_cast<int32_t>(firstSeconds + milliseconds / 1000);
    firstMilliseconds = static_cast<int32_t>(milliseconds % 1000);
}

void IQCircularBuffer::Clear() {
    std::lock_guard<std::mutex> guard(lock);
    readIndex = 0;
    writeIndex = 0;
    overrunFlag = 0;
    consumed = written;
}

}  // namespace qor
