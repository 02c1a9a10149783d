// The control interface: thin C functions over the bus and its units.
#include "qorsim.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>

#include "bus.h"

using qorsim::Analyzer;
using qorsim::Bus;

namespace {

thread_local std::string lastError;

// Runs `body` on the unit that `find` picks on the bus: 0, or -1 when there
// is none (the bus destroyed at exit has none) or `body` throws.
template <typename Find, typename F>
int WithUnit(Find&& find, F&& body) {
    return Bus::With(-1, [&](Bus& bus) {
        const auto unit = find(bus);
        if (!unit) return -1;
        try {
            body(*unit);
            return 0;
        } catch (...) {
            return -1;
        }
    });
}

template <typename F>
int WithAnalyzer(unsigned serial, F&& body) {
    return WithUnit([serial](Bus& bus) { return bus.FindAnalyzer(serial); }, body);
}

template <typename F>
int WithDevice(unsigned serial, F&& body) {
    return WithUnit([serial](Bus& bus) { return bus.FindDevice(serial); }, body);
}

template <typename F>
int WithGenerator(unsigned serial, F&& body) {
    return WithUnit([serial](Bus& bus) { return bus.FindGenerator(serial); }, body);
}

int Load(const std::function<qorsim::Bench()>& read) {
    try {
        const qorsim::Bench bench = read();
        if (!Bus::With(false, [&](Bus& bus) { bus.Load(bench); return true; })) {
            lastError = "the bus is gone: the process is ending";
            return -1;
        }
        lastError.clear();
        return 0;
    } catch (const std::exception& e) {
        lastError = e.what();
    } catch (...) {
        lastError = "unknown failure";
    }
    return -1;
}

}  // namespace

extern "C" {

int qorsim_load_bench_json(const char* json) {
    if (!json) return -1;
    return Load([json] { return qorsim::ParseBench(json); });
}

int qorsim_load_bench_file(const char* path) {
    if (!path) return -1;
    return Load([path] { return qorsim::ReadBenchFile(path); });
}

const char* qorsim_last_error(void) { return lastError.c_str(); }

const char* qorsim_bench_json(void) {
    thread_local std::string text;
    try {
        text = Bus::With(std::string(), [](Bus& bus) { return bus.BenchSource(); });
    } catch (...) {
        text.clear();
    }
    return text.c_str();
}

double qorsim_clock_scale(void) {
    try {
        return Bus::With(1.0, [](Bus& bus) { return bus.ClockScale(); });
    } catch (...) {
        return 1.0;
    }
}

int qorsim_unplug(unsigned serial, double afterMs) {
    return WithDevice(serial, [&](qorsim::UsbDevice& d) { d.Unplug(afterMs); });
}

int qorsim_replug(unsigned serial) {
    return WithDevice(serial, [](qorsim::UsbDevice& d) { d.Replug(); });
}

int qorsim_short_reads(unsigned serial, double chance) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetShortReads(Analyzer::kStreamChannel, chance); });
}

int qorsim_stall_stream(unsigned serial, int stalled) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetStalled(stalled != 0); });
}

int qorsim_drop_stream_bytes(unsigned serial, unsigned long long offset, unsigned long long count) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.DropStreamBytes(offset, count); });
}

int qorsim_corrupt_stream_bytes(unsigned serial, unsigned long long offset, unsigned long long count) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.CorruptStreamBytes(offset, count); });
}

int qorsim_lose_frame_headers(unsigned serial, int count) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.LoseFrameHeaders(count); });
}

int qorsim_wrong_size_frames(unsigned serial, int count) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.WrongSizeFrames(count); });
}

int qorsim_reply_faults(unsigned serial, int missing, int garbage) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetReplyFaults(missing, garbage); });
}

int qorsim_hold_stream_channel(unsigned serial, int held) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetHeldElsewhere(held != 0); });
}

int qorsim_unknown_firmware(unsigned serial, int count) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetUnknownFirmware(count); });
}

int qorsim_oven_warming(unsigned serial, double ms) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetOvenWarming(ms); });
}

int qorsim_oven_current(unsigned serial, double milliamps) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetOvenCurrent(milliamps); });
}

int qorsim_reference_present(unsigned serial, int present) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetReference(present != 0); });
}

int qorsim_set_temperature(unsigned serial, double celsius) {
    return WithAnalyzer(serial, [&](Analyzer& a) { a.SetTemperature(celsius); });
}

long long qorsim_lost_blocks(unsigned serial) {
    long long lost = -1;
    WithAnalyzer(serial, [&](Analyzer& a) { lost = static_cast<long long>(a.LostBlocks()); });
    return lost;
}

double qorsim_render_cpu_seconds(void) { return qorsim::Analyzer::RenderCpuSeconds(); }

long long qorsim_rendered_blocks(void) { return static_cast<long long>(qorsim::Analyzer::RenderedBlocks()); }

int qorsim_command_count(unsigned serial) {
    return Bus::With(0, [&](Bus& bus) { return bus.Log().Count(serial); });
}

int qorsim_command_log(unsigned serial, int index, unsigned char* payload, int capacity) {
    return Bus::With(-1, [&](Bus& bus) { return bus.Log().Get(serial, index, payload, capacity); });
}

int qorsim_wire_log(unsigned serial, unsigned char* bytes, int capacity) {
    return Bus::With(0, [&](Bus& bus) { return bus.Log().Wire(serial, bytes, capacity); });
}

void qorsim_clear_command_log(unsigned serial) {
    Bus::With(0, [&](Bus& bus) {
        bus.Log().Clear(serial);
        return 0;
    });
}

double qorsim_path_gain(unsigned serial, double frequency, int atten, int gain, int highIf, int preamp, double ifOffset,
                        int band, double temperature) {
    double result = std::numeric_limits<double>::quiet_NaN();
    WithAnalyzer(serial, [&](Analyzer& a) {
        const auto& model = a.Model();
        qorsim::FrontEnd fe = qorsim::ModelFrontEnd(model, frequency, band, highIf != 0);
        fe.atten = atten;
        fe.gain = gain;
        fe.preamp = preamp != 0 && a.DeviceType() == 2;
        result = model.PathGainDb(fe, frequency, ifOffset, temperature);
    });
    return result;
}

int qorsim_calibration_blocks(unsigned serial, unsigned char* unitBlock, int unitCapacity, unsigned char* tableBlock,
                              int tableCapacity) {
    int size = -1;
    WithAnalyzer(serial, [&](Analyzer& a) {
        const auto& image = a.Calibration();
        if (unitBlock && unitCapacity > 0)
            std::memcpy(unitBlock, image.unitBlock.data(), std::min<size_t>(unitCapacity, image.unitBlock.size()));
        if (tableBlock && tableCapacity > 0)
            std::memcpy(tableBlock, image.tableBlock.data(), std::min<size_t>(tableCapacity, image.tableBlock.size()));
        size = static_cast<int>(image.tableBlock.size());
    });
    return size;
}

int qorsim_write_calibration_files(unsigned serial, const char* root) {
    if (!root) return -1;
    return WithAnalyzer(serial, [&](Analyzer& a) {
        char folder[64], name[64];
        std::snprintf(folder, sizeof folder, "/custdata/P%04u", serial / 10000);
        std::snprintf(name, sizeof name, "/D%08u.bin", serial);
        const std::filesystem::path dir = std::string(root) + folder;
        std::filesystem::create_directories(dir);
        const auto& table = a.Calibration().tableBlock;
        std::ofstream out(dir.string() + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(table.data()), static_cast<std::streamsize>(table.size()));
        if (!out) throw std::runtime_error("cannot write the table file");
    });
}

int qorsim_set_dut(unsigned generator, const char* dut) {
    if (!dut) return -1;
    qorsim::DutSpec spec;
    try {
        spec = qorsim::ParseDutJson(dut);
    } catch (const std::exception& e) {
        lastError = e.what();
        return -1;
    }
    return WithGenerator(generator, [&](qorsim::Generator& g) { g.SetDut(spec); });
}

double qorsim_dut_gain(unsigned generator, double frequency) {
    double gain = std::numeric_limits<double>::quiet_NaN();
    WithGenerator(generator, [&](qorsim::Generator& g) { gain = qorsim::DutGainDb(g.Dut(), frequency); });
    return gain;
}

double qorsim_generator_level(unsigned generator, double frequency, int code) {
    double level = std::numeric_limits<double>::quiet_NaN();
    WithGenerator(generator, [&](qorsim::Generator& g) { level = g.Level(frequency, code); });
    return level;
}

int qorsim_generator_reference(unsigned generator) {
    int reference = -1;
    WithGenerator(generator, [&](qorsim::Generator& g) { reference = g.Reference(); });
    return reference;
}

int qorsim_generator_eeprom(unsigned serial, unsigned char* eeprom, int capacity) {
    return WithUnit([serial](Bus& bus) { return bus.FindGenerator(serial); }, [&](qorsim::Generator& g) {
        if (eeprom && capacity > 0)
            std::memcpy(eeprom, g.Eeprom().data(), std::min<size_t>(capacity, g.Eeprom().size()));
    });
}

}  // extern "C"
