// The virtual USB bus: the units of the bench, the driver's device list as
// the last FT_CreateDeviceInfoList saw it, and the open handles. One instance
// per process, built from the bench file on first use and destroyed at exit
// with the other statics of this library.
//
// Life at exit: the host library builds its device table before it first
// calls in, so the bus is destroyed first, and the table's destructor then
// closes the handles it still holds. Every call therefore enters through
// With(): once the destruction has begun a call gets its `gone` answer, and
// the destruction waits for the calls already inside (it unplugs every unit
// first, so that a waiting read ends at once).
//
// Locking: `mutex_` guards the unit lists, the device list and the handle
// table. Calls into a unit are made after it is released, holding a shared
// pointer, so that a waiting read never blocks the bus.
#ifndef QOR_SIM_BUS_H
#define QOR_SIM_BUS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "analyzer.h"
#include "bench.h"
#include "command_log.h"
#include "generator.h"

namespace qorsim {

class Bus {
public:
    // Runs `body(bus)` on the bus of the process and returns its result, or
    // `gone` once the bus is being destroyed.
    template <typename R, typename F>
    static R With(R gone, F&& body) {
        const Entry entry;
        return entry.bus ? static_cast<R>(body(*entry.bus)) : gone;
    }
    ~Bus();

    // Replaces the whole bench; every open handle goes stale.
    void Load(const Bench& bench);
    double ClockScale();
    // The JSON text of the bench in force.
    std::string BenchSource();
    CommandLog& Log() { return log_; }

    std::shared_ptr<Analyzer> FindAnalyzer(uint32_t serial);
    std::shared_ptr<Generator> FindGenerator(uint32_t serial);
    std::shared_ptr<UsbDevice> FindDevice(uint32_t serial);

    // The D2XX surface.
    uint32_t CreateDeviceInfoList(uint32_t* count);
    uint32_t GetDeviceInfoDetail(uint32_t index, uint32_t* flags, uint32_t* type, uint32_t* id, uint32_t* locId,
                                 char* serial, char* description, void** handle);
    uint32_t Open(int index, void** handle);
    uint32_t Close(void* handle);
    uint32_t GetDeviceInfo(void* handle, uint32_t* type, uint32_t* id, char* serial, char* description);

    struct Channel {
        std::shared_ptr<UsbDevice> device;
        int channel = 0;
        uint64_t epoch = 0;
    };
    // The channel behind a handle; false for an unknown handle.
    bool Resolve(void* handle, Channel* out);

private:
    // A call inside the bus, counted from before it looks for the bus.
    struct Entry {
        Entry();
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        Bus* bus;
    };

    Bus();
    struct Listed {
        std::shared_ptr<UsbDevice> device;
        int channel;
    };
    std::vector<Listed> ChannelsInOrder() const;

    std::mutex mutex_;
    CommandLog log_;
    Bench bench_;
    std::vector<std::shared_ptr<Analyzer>> analyzers_;
    std::vector<std::shared_ptr<Generator>> generators_;
    std::vector<Listed> list_;
    std::map<uintptr_t, Channel> handles_;
    uintptr_t nextHandle_ = 0x51A0;
};

}  // namespace qorsim

#endif
