// `qor tg`: a scalar network measurement with the tracking generator. The
// thru (the cable with nothing between) is stored first, or read from a file
// an earlier run saved; then the device under test is measured relative to
// it, and written as CSV (frequency_hz, s21_db) and as a plot.
#ifndef QOR_TOOL_TG_COMMAND_H
#define QOR_TOOL_TG_COMMAND_H

#include <string>
#include <vector>

namespace qortool {

struct TgOptions {
    int serial = 0;
    std::string start, stop;  // SI text
    int points = 200;
    bool highRange = false;
    bool preamp = false;
    bool thru = false;     // measure and store the thru first
    std::string saveThru;  // keep that thru in this file
    std::string thruFile;  // or take the thru from this file
    int sweeps = 1;        // of the device under test; the last one counts
    std::string csv;
    std::string png;
    // The virtual instrument: the device under test it swaps in after the
    // thru (a "dut" object as JSON); empty: its bench's own.
    bool sim = false;
    std::string dut;
};

int RunTg(const TgOptions& options);

// A response as the thru file and the CSV hold it: one level in dB per frequency.
struct Response {
    std::vector<double> frequency;
    std::vector<double> db;
};
bool WriteResponseCsv(const std::string& path, const Response& response);
// False when the file cannot be read or holds no response.
bool ReadResponseCsv(const std::string& path, Response* response);

}  // namespace qortool

#endif
