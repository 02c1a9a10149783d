// The virtual instrument's bench file: any text either loads or is refused
// with a message, and a bench that loads lists its units.
#include <cstddef>
#include <cstdint>
#include <string>

#include "qorsim.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (qorsim_load_bench_json(text.c_str()) != 0) {
        if (qorsim_last_error()[0] == '\0') __builtin_trap();
        return 0;
    }
    // What loaded reads back as a bench that loads again.
    const std::string loaded = qorsim_bench_json();
    if (qorsim_load_bench_json(loaded.c_str()) != 0) __builtin_trap();
    return 0;
}
