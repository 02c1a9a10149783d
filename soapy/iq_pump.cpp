#include "iq_pump.h"

#include "qor_api.h"

namespace qorsoapy {

void IqPump::Start(int device, int blockLength, double sampleRate) {
    Stop();
    device_ = device;
    std::lock_guard<std::mutex> reading(readerLock_);
    sampleRate_ = sampleRate;
    for (IqBlock& block : blocks_) block.samples.resize(blockLength);
    {
        std::lock_guard<std::mutex> hold(lock_);
        head_ = queued_ = 0;
        stopping_ = false;
        failure_ = 0;
    }
    thread_ = std::thread(&IqPump::Run, this);
}

void IqPump::Stop() {
    if (!thread_.joinable()) return;
    {
        std::lock_guard<std::mutex> hold(lock_);
        stopping_ = true;
    }
    changed_.notify_all();
    qorAbort(device_);
    thread_.join();
    // A waiting reader has left on `stopping_`; one that holds a block finishes first.
    std::lock_guard<std::mutex> reading(readerLock_);
    std::lock_guard<std::mutex> hold(lock_);
    queued_ = 0;
}

void IqPump::Run() {
    for (;;) {
        int tail;
        {
            std::unique_lock<std::mutex> hold(lock_);
            changed_.wait(hold, [this] { return stopping_ || queued_ < kBlocks; });
            if (stopping_) return;
            tail = (head_ + queued_) % kBlocks;
        }
        // The tail block is the pump's alone until it is queued.
        IqBlock& block = blocks_[tail];
        IQPacket packet{};
        packet.iqData = reinterpret_cast<float*>(block.samples.data());
        packet.iqCount = static_cast<int32_t>(block.samples.size());
        const qorStatus status = qorGetIQData(device_, &packet);
        std::lock_guard<std::mutex> hold(lock_);
        if (stopping_) return;
        if (status < 0 && status != qorUsbCommErr) {
            failure_ = status;
        } else {
            block.count = packet.iqCount;
            block.offset = 0;
            block.loss = packet.sampleLoss != 0;
            block.timeNs = static_cast<long long>(static_cast<uint32_t>(packet.sec)) * 1000000000LL +
                           static_cast<long long>(packet.milli) * 1000000LL;
            ++queued_;
            // Samples read across a link failure are delivered, then the stream ends.
            if (status == qorUsbCommErr) failure_ = status;
        }
        changed_.notify_all();
        if (failure_ != 0) return;
    }
}

IqBlock* IqPump::WaitFront(std::chrono::microseconds timeout) {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait_for(hold, timeout, [this] { return queued_ > 0 || failure_ != 0 || stopping_; });
    return queued_ > 0 ? &blocks_[head_] : nullptr;
}

void IqPump::Release() {
    {
        std::lock_guard<std::mutex> hold(lock_);
        head_ = (head_ + 1) % kBlocks;
        --queued_;
    }
    changed_.notify_all();
}

int IqPump::Failure() const {
    std::lock_guard<std::mutex> hold(lock_);
    return failure_;
}

}  // namespace qorsoapy
