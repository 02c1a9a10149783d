#include "sim_control.h"

#include <dlfcn.h>

#include <cstdlib>

namespace qorbench {
namespace {

template <typename Function>
bool Resolve(void* library, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(dlsym(library, name));
    return *function != nullptr;
}

}  // namespace

const SimControl* Sim() {
    static const SimControl* const control = []() -> const SimControl* {
        const char* path = std::getenv("QOR_D2XX_LIBRARY");
        void* library = path ? dlopen(path, RTLD_NOW) : nullptr;
        if (!library) return nullptr;
        static SimControl calls;
        const bool all = Resolve(library, "qorsim_load_bench_json", &calls.loadBenchJson) &&
                         Resolve(library, "qorsim_bench_json", &calls.benchJson) &&
                         Resolve(library, "qorsim_last_error", &calls.lastError) &&
                         Resolve(library, "qorsim_lost_blocks", &calls.lostBlocks) &&
                         Resolve(library, "qorsim_render_cpu_seconds", &calls.renderCpuSeconds) &&
                         Resolve(library, "qorsim_rendered_blocks", &calls.renderedBlocks) &&
                         Resolve(library, "qorsim_command_count", &calls.commandCount);
        return all ? &calls : nullptr;
    }();
    return control;
}

}  // namespace qorbench
