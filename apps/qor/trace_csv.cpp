#include "trace_csv.h"

#include <cstdio>
#include <memory>

namespace qortool {

bool WriteTraceCsv(const std::string& path, const Trace& trace) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), &std::fclose);
    if (!file) return false;
    const char* unit = trace.millivolts ? "mv" : "dbm";
    std::fprintf(file.get(), "frequency_hz,min_%s,max_%s\n", unit, unit);
    for (std::size_t i = 0; i < trace.max.size(); ++i) {
        std::fprintf(file.get(), "%.3f,%.4f,%.4f\n", trace.startFreq + static_cast<double>(i) * trace.binSize,
                     trace.min[i], trace.max[i]);
    }
    return std::ferror(file.get()) == 0;
}

}  // namespace qortool
