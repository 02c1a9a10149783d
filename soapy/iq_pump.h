// Pulls the running I/Q stream of one device into a few blocks on a thread
// of its own, so that a reader can wait for data with a time-out (the
// library's retrieval waits without one). When the reader falls behind the
// pump stops pulling, the library's buffer overruns, and the next block
// carries the library's loss flag: loss is reported in one place only.
#ifndef QOR_SOAPY_IQ_PUMP_H
#define QOR_SOAPY_IQ_PUMP_H

#include <chrono>
#include <complex>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace qorsoapy {

struct IqBlock {
    std::vector<std::complex<float>> samples;
    int count = 0;            // samples in this block
    int offset = 0;           // samples the reader has taken
    long long timeNs = 0;     // wall clock of the first sample
    bool loss = false;        // samples were lost before this block
};

class IqPump {
public:
    static constexpr int kBlocks = 8;

    ~IqPump() { Stop(); }

    // The device's I/Q mode must be running; blocks of `blockLength` samples
    // at `sampleRate`.
    void Start(int device, int blockLength, double sampleRate);
    // Aborts the device's mode (which wakes the pulling thread), joins it and
    // drops what was queued.
    void Stop();

    // Waits up to `timeout` for a block and calls `take(block)` with the
    // oldest one, which `take` consumes by advancing its offset; a block
    // consumed to its end is handed back to the pump. False when no block
    // came or the stream ended. One reader at a time; a Stop waits for it.
    template <class Take>
    bool Read(std::chrono::microseconds timeout, Take take) {
        std::lock_guard<std::mutex> reading(readerLock_);
        IqBlock* block = WaitFront(timeout);
        if (block == nullptr) return false;
        take(*block);
        if (block->offset == block->count) Release();
        return true;
    }
    // The status that ended the stream (0 while it runs).
    int Failure() const;
    double SampleRate() const { return sampleRate_; }

private:
    void Run();
    IqBlock* WaitFront(std::chrono::microseconds timeout);
    void Release();

    int device_ = -1;
    double sampleRate_ = 0.0;
    std::thread thread_;
    std::mutex readerLock_;  // held by the reader and by Start and Stop when they touch the blocks
    mutable std::mutex lock_;
    std::condition_variable changed_;
    IqBlock blocks_[kBlocks];
    int head_ = 0;     // oldest queued block
    int queued_ = 0;
    bool stopping_ = false;
    int failure_ = 0;
};

}  // namespace qorsoapy

#endif
