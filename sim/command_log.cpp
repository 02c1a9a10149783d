#include "command_log.h"

#include <algorithm>
#include <cstring>

namespace qorsim {

void CommandLog::AddCommand(uint32_t serial, const std::vector<uint8_t>& payload) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (entries_.size() < kMaxEntries) entries_.push_back({serial, payload});
}

void CommandLog::AddWire(uint32_t serial, const uint8_t* bytes, size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto& wire = wire_[serial];
    count = std::min(count, kMaxWire - std::min(kMaxWire, wire.size()));
    wire.insert(wire.end(), bytes, bytes + count);
}

int CommandLog::Count(uint32_t serial) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (serial == 0) return static_cast<int>(entries_.size());
    return static_cast<int>(std::count_if(entries_.begin(), entries_.end(),
                                          [serial](const Entry& e) { return e.serial == serial; }));
}

int CommandLog::Get(uint32_t serial, int index, uint8_t* payload, int capacity) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (index < 0) return -1;
    for (const auto& e : entries_) {
        if (serial != 0 && e.serial != serial) continue;
        if (index-- > 0) continue;
        const int length = static_cast<int>(e.payload.size());
        if (payload && capacity > 0 && length > 0) std::memcpy(payload, e.payload.data(), std::min(length, capacity));
        return length;
    }
    return -1;
}

int CommandLog::Wire(uint32_t serial, uint8_t* bytes, int capacity) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = wire_.find(serial);
    if (it == wire_.end()) return 0;
    const int length = static_cast<int>(it->second.size());
    if (bytes && capacity > 0 && length > 0) std::memcpy(bytes, it->second.data(), std::min(length, capacity));
    return length;
}

void CommandLog::Clear(uint32_t serial) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (serial == 0) {
        entries_.clear();
        wire_.clear();
        return;
    }
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                  [serial](const Entry& e) { return e.serial == serial; }),
                   entries_.end());
    wire_.erase(serial);
}

}  // namespace qorsim
