#include "tg_command.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "compression_warning.h"
#include "plot.h"
#include "progress_bar.h"
#include "session.h"
#include "si_units.h"
#include "virtual_instrument.h"

namespace qortool {
namespace {

// Sweeps taken after a change of the cable before one counts: the sweep under
// way when it came, and one that finished before it, are dropped. A thru
// request is taken up at the end of the sweep under way, so the same holds.
constexpr int kSettleSweeps = 2;

class TgSession {
public:
    TgSession(int device, int length) : device_(device), level_(length), spare_(length) {}

    // One whole sweep, relative to the thru the engine holds.
    const std::vector<double>& Sweep() {
        compression_.Note(Check("qorGetSweep_64f", qorGetSweep_64f(device_, level_.data(), spare_.data())), bar_);
        return level_;
    }
    const std::vector<double>& Settled(int sweeps) {
        for (int k = 0; k < kSettleSweeps + sweeps - 1; ++k) Sweep();
        return Sweep();
    }

private:
    int device_;
    std::vector<double> level_, spare_;
    CompressionWarning compression_;
    ProgressBar bar_;
};

// Tells the user what to connect, or connects it on the virtual instrument.
void Connect(const BenchGenerator* generator, const std::string& dut, const char* what) {
    if (generator) {
        SwapDut(generator->serial, dut);
        return;
    }
    std::fprintf(stderr, "connect %s between the generator and the analyzer, then press Enter\n", what);
    std::string line;
    std::getline(std::cin, line);
}

std::string Caption(const TgOptions& o, double start, double stop, int length, double binSize, const char* thru) {
    char text[400];
    std::snprintf(text, sizeof text, "start %s   stop %s   %d points of %s   %s   %s   thru %s",
                  FormatHz(start, 9).c_str(), FormatHz(stop, 9).c_str(), length, FormatHz(binSize, 4).c_str(),
                  o.highRange ? "high range (two passes)" : "one pass", o.preamp ? "preamp" : "no preamp", thru);
    return text;
}

}  // namespace

bool WriteResponseCsv(const std::string& path, const Response& r) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), &std::fclose);
    if (!file) return false;
    std::fprintf(file.get(), "frequency_hz,s21_db\n");
    for (std::size_t i = 0; i < r.db.size(); ++i) std::fprintf(file.get(), "%.3f,%.4f\n", r.frequency[i], r.db[i]);
    return std::ferror(file.get()) == 0;
}

bool ReadResponseCsv(const std::string& path, Response* r) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "r"), &std::fclose);
    if (!file) return false;
    char header[64] = {};
    if (!std::fgets(header, sizeof header, file.get()) || std::string(header).rfind("frequency_hz,s21_db", 0) != 0) {
        return false;
    }
    double f = 0, db = 0;
    while (std::fscanf(file.get(), "%lf,%lf", &f, &db) == 2) {
        r->frequency.push_back(f);
        r->db.push_back(db);
    }
    return !r->db.empty();
}

int RunTg(const TgOptions& o) {
    const double start = ParseFrequency(o.start, "--start"), stop = ParseFrequency(o.stop, "--stop");
    if (!(stop > start)) throw ToolError("--stop must lie above --start");
    if (o.thru == !o.thruFile.empty()) throw ToolError("give either --thru or --thru-file");
    if (o.sweeps < 1) throw ToolError("--sweeps: 1 or more");
    if (!o.dut.empty() && !o.sim) throw ToolError("--dut goes with --sim: on hardware you connect the device");
    Response thruFromFile;
    if (!o.thruFile.empty() && !ReadResponseCsv(o.thruFile, &thruFromFile)) {
        throw ToolError("--thru-file: no thru in " + o.thruFile);
    }

    // On the virtual instrument the tool swaps the cables itself, on the
    // analyzer the generator is cabled to.
    BenchGenerator generator;
    const bool swaps = o.sim && FindBenchGenerator(&generator);
    OpenedUnit unit(o.serial == 0 && swaps ? generator.cabledTo : o.serial);
    const int d = unit.device();
    int serialNumber = 0;
    Check("qorGetSerialNumber", qorGetSerialNumber(d, &serialNumber));
    Check("qorAttachTg", qorAttachTg(d));
    Check("qorConfigCenterSpan", qorConfigCenterSpan(d, (start + stop) / 2, stop - start));
    Check("qorConfigTgSweep", qorConfigTgSweep(d, o.points, o.highRange, o.preamp));
    Check("qorInitiate", qorInitiate(d, ModeTGSweep));
    int length = 0;
    double first = 0, binSize = 0;
    Check("qorQuerySweepInfo", qorQuerySweepInfo(d, &length, &first, &binSize));
    Response response;
    for (int i = 0; i < length; ++i) response.frequency.push_back(first + i * binSize);
    TgSession session(d, length);
    const BenchGenerator* bench = swaps ? &generator : nullptr;

    if (o.thru) {
        Connect(bench, R"({"kind": "thru"})", "the thru cable");
        // The thru as measured against the generator's nominal level: what a
        // later run takes from the file.
        Response measured{response.frequency, session.Settled(1)};
        Check("qorStoreTgThru", qorStoreTgThru(d, 1));
        session.Settled(1);
        if (!o.saveThru.empty() && !WriteResponseCsv(o.saveThru, measured)) {
            throw ToolError("--save-thru: cannot write " + o.saveThru);
        }
    } else if (thruFromFile.frequency.size() != response.frequency.size() ||
               std::fabs(thruFromFile.frequency.front() - first) > 0.5 ||
               std::fabs(thruFromFile.frequency.back() - response.frequency.back()) > 0.5) {
        throw ToolError("--thru-file: its frequencies are not those of this sweep (same --start, --stop, --points)");
    }

    Connect(bench, o.dut.empty() ? generator.dut : o.dut, "the device under test");
    response.db = session.Settled(o.sweeps);
    if (!o.thru) {
        for (int i = 0; i < length; ++i) response.db[i] -= thruFromFile.db[i];
    }
    qorAbort(d);

    double lowest = response.db.front(), highest = response.db.front();
    for (double v : response.db) lowest = std::min(lowest, v), highest = std::max(highest, v);
    std::printf("%d points from %s to %s: S21 from %.2f dB to %.2f dB\n", length, FormatHz(first, 9).c_str(),
                FormatHz(response.frequency.back(), 9).c_str(), lowest, highest);
    if (!o.csv.empty() && !WriteResponseCsv(o.csv, response)) throw ToolError("--csv: cannot write " + o.csv);
    if (!o.png.empty()) {
        Trace trace{first, binSize, response.db, response.db, false};
        char title[64];
        std::snprintf(title, sizeof title, "qor tg, unit %08d", serialNumber);
        const std::string caption =
            Caption(o, start, stop, length, binSize, o.thru ? "stored" : ("from " + o.thruFile).c_str());
        if (!WriteTracePng(o.png, trace, {}, {title, caption}, "S21 (dB)")) {
            throw ToolError("--png: cannot write " + o.png);
        }
    }
    return 0;
}

}  // namespace qortool
