#include "python_oracle.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace qor_test {

namespace {

// The Debian interpreter first: the one that has the Debian numpy and scipy.
const std::string& Interpreter() {
    static const std::string chosen = [] {
        for (const char* candidate : {"/usr/bin/python3", "python3"}) {
            if (std::system((std::string(candidate) + " -c 'import numpy, scipy.signal' > /dev/null 2>&1").c_str()) == 0) {
                return std::string(candidate);
            }
        }
        return std::string();
    }();
    return chosen;
}

const char kPrelude[] = R"(import os, sys
import numpy as np
import scipy.signal as sig
folder = sys.argv[1]
def inp(i):
    return np.fromfile(os.path.join(folder, 'in%d.bin' % i), dtype=np.float64)
def out(a):
    np.ascontiguousarray(np.asarray(a, dtype=np.float64)).tofile(os.path.join(folder, 'out.bin'))
)";

}  // namespace

bool PythonOracle::Available(std::string* why) {
    if (Interpreter().empty() && why) *why = "no python3 with numpy and scipy (install python3-numpy python3-scipy)";
    return !Interpreter().empty();
}

std::vector<double> PythonOracle::Run(const std::string& body, const std::vector<std::vector<double>>& inputs) {
    char folderTemplate[] = "/tmp/qor_oracle_XXXXXX";
    if (mkdtemp(folderTemplate) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    const std::string dir = folderTemplate;
    std::vector<std::string> files;
    for (size_t i = 0; i < inputs.size(); ++i) {
        files.push_back(dir + "/in" + std::to_string(i) + ".bin");
        std::ofstream(files.back(), std::ios::binary)
            .write(reinterpret_cast<const char*>(inputs[i].data()), static_cast<std::streamsize>(inputs[i].size() * sizeof(double)));
    }
    files.push_back(dir + "/oracle.py");
    std::ofstream(files.back()) << kPrelude << body << "\n";
    const int status = std::system((Interpreter() + " " + files.back() + " " + dir).c_str());
    files.push_back(dir + "/out.bin");
    std::ifstream result(files.back(), std::ios::binary | std::ios::ate);
    std::vector<double> values(status == 0 && result ? static_cast<size_t>(result.tellg()) / sizeof(double) : 0);
    result.seekg(0);
    result.read(reinterpret_cast<char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(double)));
    for (const std::string& f : files) std::remove(f.c_str());
    rmdir(dir.c_str());
    if (status != 0 || !result) throw std::runtime_error("the oracle script failed: " + body);
    return values;
}

}  // namespace qor_test
