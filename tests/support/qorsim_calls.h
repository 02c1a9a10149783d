// The virtual instrument's control calls, resolved from the D2XX library
// that the tests run on (QOR_D2XX_LIBRARY): the same instance, and so the
// same bus, that the library under test talks to.
#ifndef QOR_TESTS_SUPPORT_QORSIM_CALLS_H
#define QOR_TESTS_SUPPORT_QORSIM_CALLS_H

#include <dlfcn.h>

#include <cstdlib>

#include "../../sim/qorsim.h"

namespace simcontrol {

struct Calls {
    decltype(&qorsim_load_bench_json) loadBenchJson;
    decltype(&qorsim_last_error) lastError;
    decltype(&qorsim_path_gain) pathGain;
    decltype(&qorsim_calibration_blocks) calibrationBlocks;
    decltype(&qorsim_write_calibration_files) writeCalibrationFiles;
    decltype(&qorsim_command_count) commandCount;
    decltype(&qorsim_command_log) commandLog;
    decltype(&qorsim_clear_command_log) clearCommandLog;
    decltype(&qorsim_unplug) unplug;
    decltype(&qorsim_lose_frame_headers) loseFrameHeaders;
    decltype(&qorsim_wrong_size_frames) wrongSizeFrames;
    decltype(&qorsim_corrupt_stream_bytes) corruptStreamBytes;
    decltype(&qorsim_reference_present) referencePresent;
    decltype(&qorsim_unknown_firmware) unknownFirmware;
    decltype(&qorsim_oven_warming) ovenWarming;
    decltype(&qorsim_oven_current) ovenCurrent;
    decltype(&qorsim_hold_stream_channel) holdStream;
    decltype(&qorsim_reply_faults) replyFaults;
    decltype(&qorsim_set_temperature) setTemperature;
};

// Null when the tests don't run on the virtual instrument.
inline const Calls* Resolve() {
    static const Calls* const calls = []() -> const Calls* {
        const char* path = std::getenv("QOR_D2XX_LIBRARY");
        void* library = path ? dlopen(path, RTLD_NOW) : nullptr;
        if (!library) return nullptr;
        static Calls resolved;
        auto get = [library](auto& entry, const char* name) {
            entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(dlsym(library, name));
            return entry != nullptr;
        };
        const bool all = get(resolved.loadBenchJson, "qorsim_load_bench_json") &&
                         get(resolved.lastError, "qorsim_last_error") && get(resolved.pathGain, "qorsim_path_gain") &&
                         get(resolved.calibrationBlocks, "qorsim_calibration_blocks") &&
                         get(resolved.writeCalibrationFiles, "qorsim_write_calibration_files") &&
                         get(resolved.commandCount, "qorsim_command_count") &&
                         get(resolved.commandLog, "qorsim_command_log") &&
                         get(resolved.clearCommandLog, "qorsim_clear_command_log") &&
                         get(resolved.unplug, "qorsim_unplug") &&
                         get(resolved.loseFrameHeaders, "qorsim_lose_frame_headers") &&
                         get(resolved.wrongSizeFrames, "qorsim_wrong_size_frames") &&
                         get(resolved.corruptStreamBytes, "qorsim_corrupt_stream_bytes") &&
                         get(resolved.referencePresent, "qorsim_reference_present") &&
                         get(resolved.unknownFirmware, "qorsim_unknown_firmware") &&
                         get(resolved.ovenWarming, "qorsim_oven_warming") &&
                         get(resolved.ovenCurrent, "qorsim_oven_current") &&
                         get(resolved.holdStream, "qorsim_hold_stream_channel") &&
                         get(resolved.replyFaults, "qorsim_reply_faults") &&
                         get(resolved.setTemperature, "qorsim_set_temperature");
        return all ? &resolved : nullptr;
    }();
    return calls;
}

}  // namespace simcontrol

#endif
