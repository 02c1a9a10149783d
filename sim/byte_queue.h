// Receive queue of one channel: bytes the unit has sent and the host has not
// read yet, up to the capacity of the driver's buffer.
#ifndef QOR_SIM_BYTE_QUEUE_H
#define QOR_SIM_BYTE_QUEUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace qorsim {

class ByteQueue {
public:
    explicit ByteQueue(size_t capacity) : buffer_(capacity) {}

    size_t Size() const { return size_; }
    size_t Capacity() const { return buffer_.size(); }
    size_t Free() const { return buffer_.size() - size_; }

    // Appends as much as fits; returns the count appended.
    size_t Push(const uint8_t* data, size_t count) {
        count = std::min(count, Free());
        size_t tail = (head_ + size_) % buffer_.size();
        for (size_t done = 0; done < count;) {
            const size_t piece = std::min(count - done, buffer_.size() - tail);
            std::memcpy(&buffer_[tail], data + done, piece);
            done += piece;
            tail = (tail + piece) % buffer_.size();
        }
        size_ += count;
        return count;
    }

    size_t Pop(uint8_t* out, size_t count) {
        count = std::min(count, size_);
        for (size_t done = 0; done < count;) {
            const size_t piece = std::min(count - done, buffer_.size() - head_);
            if (out) std::memcpy(out + done, &buffer_[head_], piece);
            done += piece;
            head_ = (head_ + piece) % buffer_.size();
        }
        size_ -= count;
        return count;
    }

    void Clear() {
        head_ = 0;
        size_ = 0;
    }

private:
    std::vector<uint8_t> buffer_;
    size_t head_ = 0;
    size_t size_ = 0;
};

}  // namespace qorsim

#endif
