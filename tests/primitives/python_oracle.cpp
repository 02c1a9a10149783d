#include "python_oracle.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace qor_test {

namespace {

// The Debian interpreter first: the one that has the Debian numpy and scipy.
const char* const kInterpreters[] = {"/usr/bin/python3", "python3"};

const std::string& Interpreter(std::string* why) {
    static std::string chosen;
    static std::string failure;
    static bool probed = false;
    if (!probed) {
        probed = true;
        for (const char* candidate : kInterpreters) {
            const std::string command =
                std::string(candidate) + " -c 'import numpy, scipy.signal' > /dev/null 2>&1";
            if (std::system(command.c_str()) == 0) {
                chosen = candidate;
                break;
            }
        }
        if (chosen.empty()) failure = "no python3 with numpy and scipy (install python3-numpy python3-scipy)";
    }
    if (why) *why = failure;
    return chosen;
}

void WriteDoubles(const std::string& path, const std::vector<double>& values) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(values.data()), static_cast<std::streamsize>(values.size() * sizeof(double)));
    if (!file) throw std::runtime_error("cannot write " + path);
}

std::vector<double> ReadDoubles(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) throw std::runtime_error("the oracle wrote no " + path);
    const std::streamsize bytes = file.tellg();
    std::vector<double> values(static_cast<size_t>(bytes) / sizeof(double));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(values.data()), bytes);
    return values;
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

bool PythonOracle::Available(std::string* why) { return !Interpreter(why).empty(); }

std::vector<double> PythonOracle::Run(const std::string& body, const std::vector<std::vector<double>>& inputs) {
    char folderTemplate[] = "/tmp/qor_oracle_XXXXXX";
    const char* folder = mkdtemp(folderTemplate);
    if (folder == nullptr) throw std::runtime_error("cannot make a temporary folder");
    const std::string dir = folder;
    std::vector<std::string> files;
    for (size_t i = 0; i < inputs.size(); ++i) {
        files.push_back(dir + "/in" + std::to_string(i) + ".bin");
        WriteDoubles(files.back(), inputs[i]);
    }
    files.push_back(dir + "/oracle.py");
    std::ofstream(files.back()) << kPrelude << body << "\n";
    const std::string command = Interpreter(nullptr) + " " + files.back() + " " + dir;
    const int status = std::system(command.c_str());
    files.push_back(dir + "/out.bin");
    std::vector<double> result;
    if (status == 0) result = ReadDoubles(files.back());
    for (const std::string& f : files) std::remove(f.c_str());
    rmdir(dir.c_str());
    if (status != 0) throw std::runtime_error("the oracle script failed: " + body);
    return result;
}

}  // namespace qor_test
