// Registers the driver key "qor": find lists the units by serial, make opens one.
#include <SoapySDR/Registry.hpp>

#include <cstdio>
#include <stdexcept>

#include "qor_api.h"
#include "qor_soapy_device.h"

namespace {

SoapySDR::Kwargs UnitArgs(int serial) {
    char text[16];
    std::snprintf(text, sizeof text, "%08d", serial);
    return {{"driver", "qor"}, {"serial", text}, {"label", std::string("qor analyzer ") + text}};
}

// The free units on the bus, then those this process has open: listing the
// bus opens nothing, so it is cheap enough to call often.
SoapySDR::KwargsList FindQor(const SoapySDR::Kwargs& args) {
    std::vector<int> serials(8);
    int count = 0;
    if (qorGetSerialNumberList(serials.data(), &count) != qorNoError) count = 0;
    serials.resize(count);
    for (int device = 0; device < 8; ++device) {
        int serial = 0;
        if (qorGetSerialNumber(device, &serial) == qorNoError) serials.push_back(serial);
    }
    const bool filtered = args.count("serial") != 0;
    const int wanted = filtered ? std::atoi(args.at("serial").c_str()) : 0;
    SoapySDR::KwargsList found;
    for (int serial : serials) {
        if (!filtered || serial == wanted) found.push_back(UnitArgs(serial));
    }
    return found;
}

SoapySDR::Device* MakeQor(const SoapySDR::Kwargs& args) {
    // The calibration files' prefix, for units without calibration on board.
    if (args.count("cal_path")) qorSetCalFilePath(args.at("cal_path").c_str());
    int serial = 0;
    if (args.count("serial")) {
        serial = std::atoi(args.at("serial").c_str());
    } else {
        int serials[8];
        int count = 0;
        qorsoapy::Check(qorGetSerialNumberList(serials, &count), "list");
        if (count == 0) throw std::runtime_error("qor: no free unit on the bus");
        serial = serials[0];
    }
    return new qorsoapy::QorDevice(serial);
}

const SoapySDR::Registry registerQor("qor", &FindQor, &MakeQor, SOAPY_SDR_ABI_VERSION);

}  // namespace
