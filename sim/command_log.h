// The decoded commands that reached each unit, and the raw bytes written to
// its command channel, kept for tests that check what the host sent.
#ifndef QOR_SIM_COMMAND_LOG_H
#define QOR_SIM_COMMAND_LOG_H

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace qorsim {

class CommandLog {
public:
    void AddCommand(uint32_t serial, const std::vector<uint8_t>& payload);
    void AddWire(uint32_t serial, const uint8_t* bytes, size_t count);

    // serial 0 means all units, in the order the commands arrived.
    int Count(uint32_t serial) const;
    // Length of entry `index` (copied up to `capacity` bytes), -1 if there is none.
    int Get(uint32_t serial, int index, uint8_t* payload, int capacity) const;
    // Raw command-channel bytes of one unit; total length, copied up to `capacity`.
    int Wire(uint32_t serial, uint8_t* bytes, int capacity) const;
    void Clear(uint32_t serial);

private:
    struct Entry {
        uint32_t serial;
        std::vector<uint8_t> payload;
    };
    static constexpr size_t kMaxEntries = 1u << 20;
    static constexpr size_t kMaxWire = 1u << 22;

    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
    std::map<uint32_t, std::vector<uint8_t>> wire_;
};

}  // namespace qorsim

#endif
