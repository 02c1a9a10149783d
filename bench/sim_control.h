// The virtual instrument's control calls that benchmarks use, resolved from
// the D2XX library the library runs on (QOR_D2XX_LIBRARY): the same instance,
// and so the same bus.
#ifndef QOR_BENCH_SIM_CONTROL_H
#define QOR_BENCH_SIM_CONTROL_H

#include "../sim/qorsim.h"

namespace qorbench {

struct SimControl {
    decltype(&qorsim_load_bench_json) loadBenchJson;
    decltype(&qorsim_bench_json) benchJson;
    decltype(&qorsim_last_error) lastError;
    decltype(&qorsim_lost_blocks) lostBlocks;
    decltype(&qorsim_render_cpu_seconds) renderCpuSeconds;
    decltype(&qorsim_rendered_blocks) renderedBlocks;
    decltype(&qorsim_command_count) commandCount;
};

// Null when the D2XX library is no virtual instrument.
const SimControl* Sim();

}  // namespace qorbench

#endif
