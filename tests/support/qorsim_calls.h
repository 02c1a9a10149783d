// The virtual instrument's control calls, resolved from the D2XX library
// that the tests run on (QOR_D2XX_LIBRARY): the same instance, and so the
// same bus, that the library under test talks to.
#ifndef QOR_TESTS_SUPPORT_QORSIM_CALLS_H
#define QOR_TESTS_SUPPORT_QORSIM_CALLS_H

#include <dlfcn.h>

#include <cstdlib>
#include <type_traits>

#include "../../sim/qorsim.h"

namespace simcontrol {

// Each entry: the member's name and the exported function it holds.
#define QORSIM_CALLS(X)                                 \
    X(loadBenchJson, qorsim_load_bench_json)            \
    X(lastError, qorsim_last_error)                     \
    X(pathGain, qorsim_path_gain)                       \
    X(calibrationBlocks, qorsim_calibration_blocks)     \
    X(writeCalibrationFiles, qorsim_write_calibration_files) \
    X(commandCount, qorsim_command_count)               \
    X(commandLog, qorsim_command_log)                   \
    X(clearCommandLog, qorsim_clear_command_log)        \
    X(unplug, qorsim_unplug)                            \
    X(replug, qorsim_replug)                            \
    X(stallStream, qorsim_stall_stream)                 \
    X(shortReads, qorsim_short_reads)                   \
    X(loseFrameHeaders, qorsim_lose_frame_headers)      \
    X(wrongSizeFrames, qorsim_wrong_size_frames)        \
    X(corruptStreamBytes, qorsim_corrupt_stream_bytes)  \
    X(dropStreamBytes, qorsim_drop_stream_bytes)        \
    X(referencePresent, qorsim_reference_present)       \
    X(unknownFirmware, qorsim_unknown_firmware)         \
    X(ovenWarming, qorsim_oven_warming)                 \
    X(ovenCurrent, qorsim_oven_current)                 \
    X(holdStream, qorsim_hold_stream_channel)           \
    X(replyFaults, qorsim_reply_faults)                 \
    X(setTemperature, qorsim_set_temperature)          \
    X(setDut, qorsim_set_dut)                           \
    X(dutGain, qorsim_dut_gain)                         \
    X(generatorReference, qorsim_generator_reference)  \
    X(generatorEeprom, qorsim_generator_eeprom)

struct Calls {
#define QORSIM_MEMBER(member, function) decltype(&function) member;
    QORSIM_CALLS(QORSIM_MEMBER)
#undef QORSIM_MEMBER
};

// Null when the tests don't run on the virtual instrument.
inline const Calls* Resolve() {
    static const Calls* const calls = []() -> const Calls* {
        const char* path = std::getenv("QOR_D2XX_LIBRARY");
        void* library = path ? dlopen(path, RTLD_NOW) : nullptr;
        if (!library) return nullptr;
        static Calls resolved;
        bool all = true;
#define QORSIM_RESOLVE(member, function)                                                  \
    resolved.member = reinterpret_cast<decltype(&function)>(dlsym(library, #function)); \
    all = all && resolved.member != nullptr;
        QORSIM_CALLS(QORSIM_RESOLVE)
#undef QORSIM_RESOLVE
        return all ? &resolved : nullptr;
    }();
    return calls;
}

#undef QORSIM_CALLS

}  // namespace simcontrol

#endif
