#include "bus.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "d2xx_types.h"

namespace qorsim {

namespace {

constexpr uint32_t kVendorProduct = 0x04036010;

Bench StartupBench() {
    const char* path = std::getenv("QOR_SIM_BENCH");
    if (!path || !*path) return ParseBench(DefaultBenchJson());
    try {
        return ReadBenchFile(path);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qor_sim: %s; the bus stays empty\n", e.what());
        return Bench();
    }
}

void CopyText(const std::string& text, char* out, size_t size) {
    if (!out) return;
    std::memset(out, 0, size);
    std::memcpy(out, text.data(), std::min(text.size(), size - 1));
}

// Trivially destructible, so valid for the whole process, before the bus is
// built and after it is destroyed.
std::atomic<Bus*> liveBus{nullptr};
std::atomic<int> callsInside{0};

}  // namespace

Bus::Entry::Entry() {
    // Counted before the bus is looked up: a destruction that clears the bus
    // after this look waits for this call to leave.
    callsInside.fetch_add(1);
    static Bus instance;
    bus = liveBus.load();
}

Bus::Entry::~Entry() { callsInside.fetch_sub(1); }

Bus::Bus() {
    Load(StartupBench());
    liveBus.store(this);
}

Bus::~Bus() {
    liveBus.store(nullptr);
    Load(Bench());  // an empty bench: every unit unplugged, every waiting read ends
    while (callsInside.load() != 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string Bus::BenchSource() {
    std::lock_guard<std::mutex> lock(mutex_);
    return bench_.source;
}

void Bus::Load(const Bench& bench) {
    const Timing timing{bench.clockScale, bench.realtime};
    std::vector<std::shared_ptr<Analyzer>> analyzers;
    std::vector<std::shared_ptr<Generator>> generators;
    for (const auto& u : bench.units) analyzers.push_back(std::make_shared<Analyzer>(u, timing, log_));
    for (const auto& g : bench.generators) {
        std::weak_ptr<Analyzer> target;
        for (const auto& a : analyzers)
            if (a->Serial() == g.cabledTo) target = a;
        auto sink = [target](const GeneratorState& state) {
            if (auto a = target.lock()) a->SetGenerator(state);
        };
        generators.push_back(std::make_shared<Generator>(g, timing, log_, sink));
    }
    std::vector<std::shared_ptr<Analyzer>> oldAnalyzers;
    std::vector<std::shared_ptr<Generator>> oldGenerators;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        bench_ = bench;
        oldAnalyzers.swap(analyzers_);
        oldGenerators.swap(generators_);
        analyzers_ = std::move(analyzers);
        generators_ = std::move(generators);
        list_.clear();
    }
    // Units of the old bench are gone from the bus: their handles fail from now on.
    for (auto& a : oldAnalyzers) a->Unplug(0.0);
    for (auto& g : oldGenerators) g->Unplug(0.0);
}

double Bus::ClockScale() {
    std::lock_guard<std::mutex> lock(mutex_);
    return bench_.clockScale;
}

std::shared_ptr<Analyzer> Bus::FindAnalyzer(uint32_t serial) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& a : analyzers_)
        if (a->Serial() == serial) return a;
    return nullptr;
}

std::shared_ptr<Generator> Bus::FindGenerator(uint32_t serial) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& g : generators_)
        if (g->Serial() == serial) return g;
    return nullptr;
}

std::shared_ptr<UsbDevice> Bus::FindDevice(uint32_t serial) {
    if (auto a = FindAnalyzer(serial)) return a;
    return FindGenerator(serial);
}

std::vector<Bus::Listed> Bus::ChannelsInOrder() const {
    const TimePoint now = SteadyClock::now();
    std::vector<Listed> a, b, all;
    for (const auto& unit : analyzers_) {
        if (!unit->Present(now)) continue;
        a.push_back({unit, Analyzer::kStreamChannel});
        b.push_back({unit, Analyzer::kCommandChannel});
    }
    switch (bench_.listOrder) {
        case ListOrder::ByUnit:
            for (size_t i = 0; i < a.size(); ++i) {
                all.push_back(a[i]);
                all.push_back(b[i]);
            }
            break;
        case ListOrder::Reversed:
            for (size_t i = a.size(); i-- > 0;) {
                all.push_back(b[i]);
                all.push_back(a[i]);
            }
            break;
        case ListOrder::Mixed:
            all = a;
            all.insert(all.end(), b.rbegin(), b.rend());
            break;
    }
    for (const auto& g : generators_)
        if (g->Present(now)) all.push_back({g, 0});
    return all;
}

uint32_t Bus::CreateDeviceInfoList(uint32_t* count) {
    std::lock_guard<std::mutex> lock(mutex_);
    list_ = ChannelsInOrder();
    if (count) *count = static_cast<uint32_t>(list_.size());
    return FT_OK;
}

uint32_t Bus::GetDeviceInfoDetail(uint32_t index, uint32_t* flags, uint32_t* type, uint32_t* id, uint32_t* locId,
                                  char* serial, char* description, void** handle) {
    Listed entry;
    void* openHandle = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (index >= list_.size()) return FT_DEVICE_NOT_FOUND;
        entry = list_[index];
        for (const auto& [value, ch] : handles_)
            if (ch.device == entry.device && ch.channel == entry.channel) openHandle = reinterpret_cast<void*>(value);
    }
    const bool open = entry.device->ListedOpen(entry.channel);
    if (flags) *flags = (open ? FT_FLAGS_OPENED : 0) | 2u; // bit 1: high speed
    if (type) *type = entry.device->ChipType();
    if (id) *id = kVendorProduct;
    if (locId) *locId = 0x1000 + (entry.device->Serial() % 0x1000) * 0x10 + static_cast<uint32_t>(entry.channel);
    CopyText(entry.device->SerialText(entry.channel), serial, FT_SERIAL_SIZE);
    CopyText(entry.device->Description(entry.channel), description, FT_DESCRIPTION_SIZE);
    if (handle) *handle = open ? openHandle : nullptr;
    return FT_OK;
}

uint32_t Bus::Open(int index, void** handle) {
    if (!handle) return FT_INVALID_PARAMETER;
    *handle = nullptr;
    Listed entry;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (index < 0 || static_cast<size_t>(index) >= list_.size()) return FT_DEVICE_NOT_FOUND;
        entry = list_[static_cast<size_t>(index)];
    }
    uint64_t epoch = 0;
    const uint32_t status = entry.device->Open(entry.channel, SteadyClock::now(), &epoch);
    if (status != FT_OK) return status;
    std::lock_guard<std::mutex> lock(mutex_);
    const uintptr_t value = nextHandle_++;
    handles_[value] = {entry.device, entry.channel, epoch};
    *handle = reinterpret_cast<void*>(value);
    return FT_OK;
}

bool Bus::Resolve(void* handle, Channel* out) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = handles_.find(reinterpret_cast<uintptr_t>(handle));
    if (it == handles_.end()) return false;
    *out = it->second;
    return true;
}

uint32_t Bus::Close(void* handle) {
    Channel ch;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = handles_.find(reinterpret_cast<uintptr_t>(handle));
        if (it == handles_.end()) return FT_INVALID_HANDLE;
        ch = it->second;
        handles_.erase(it);
    }
    ch.device->Close(ch.channel, ch.epoch);
    return FT_OK;
}

uint32_t Bus::GetDeviceInfo(void* handle, uint32_t* type, uint32_t* id, char* serial, char* description) {
    Channel ch;
    if (!Resolve(handle, &ch)) return FT_INVALID_HANDLE;
    if (!ch.device->Alive(ch.epoch, SteadyClock::now())) return FT_IO_ERROR;
    if (type) *type = ch.device->ChipType();
    if (id) *id = kVendorProduct;
    CopyText(ch.device->SerialText(ch.channel), serial, FT_SERIAL_SIZE);
    CopyText(ch.device->Description(ch.channel), description, FT_DESCRIPTION_SIZE);
    return FT_OK;
}

}  // namespace qorsim
