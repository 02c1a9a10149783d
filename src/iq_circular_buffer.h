// The hand-over of an I/Q stream: the acquisition thread writes each finished
// block, the application's thread reads any number of samples. Up to 31
// blocks are held (the 32nd already counts as an overrun); a write that finds
// too little room throws everything stored away and raises the overrun flag,
// so the acquisition never waits for the reader. The wall-clock stamp of the
// oldest stored sample is kept: taken from the writer when a block goes into
// an empty buffer, carried forward by arithmetic on each read. So is where
// blocks measured on clipped samples lie, so that the read that hands them
// out can say so (from the oldest such block not yet read to the newest: a
// clean block between two of them counts with them).
//
// Threads: one writer, one reader. `lock` covers each whole Write, Read and
// Clear, copies included; the indices and the flag are atomic so that
// Available and TakeOverrunFlag may look without it. The stamp is read
// without the lock (the reader's own look at the oldest sample).
#ifndef QOR_IQ_CIRCULAR_BUFFER_H
#define QOR_IQ_CIRCULAR_BUFFER_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "ipp_types.h"

namespace qor {

class IQCircularBuffer {
public:
    // Sets the capacity to `count` samples, all zero, and empties the buffer.
    void Resize(int count);
    int Capacity() const { return static_cast<int>(storage.size()); }
    int Available() const;
    // Stores `count` samples (at most the capacity) stamped with the wall
    // clock; `clipped`: measured on samples of a clipping converter.
    void Write(const Ipp32fc* source, int count, int32_t seconds, int32_t milliseconds, bool clipped = false);
    // Takes up to `count` samples; `decimation` (1 to 128) gives the time a
    // sample spans, by which the stamp moves on. `*clipped` (when given): some
    // of them came from a clipped block.
    void Read(Ipp32fc* destination, int count, int* received, int decimation, bool* clipped = nullptr);
    // Drops what is stored and a pending overrun; the stamp stays.
    void Clear();
    int TakeOverrunFlag() { return overrunFlag.exchange(0); }

    int32_t FirstSeconds() const { return firstSeconds.load(); }
    int32_t FirstMilliseconds() const { return firstMilliseconds.load(); }

private:
    std::vector<Ipp32fc> storage;
    std::atomic<int32_t> readIndex{0};
    std::atomic<int32_t> writeIndex{0};
    std::mutex lock;
    std::atomic<int32_t> overrunFlag{0};
    std::atomic<int32_t> firstSeconds{0};
    std::atomic<int32_t> firstMilliseconds{0};
    // Under `lock`: samples written and read (or thrown away) since the
    // start, and the clipped ones not read yet, [clippedFrom, clippedTo).
    int64_t written = 0;
    int64_t consumed = 0;
    int64_t clippedFrom = 0;
    int64_t clippedTo = 0;
};

}  // namespace qor

#endif
