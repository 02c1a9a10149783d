#include "info_commands.h"

#include <cstdio>

#include "session.h"

namespace qortool {

const char* DeviceTypeName(int type) {
    switch (type) {
        case DeviceTypeVelm: return "Velm (4.4 GHz)";
        case DeviceTypeVelmB: return "Velm B (4.4 GHz)";
        case DeviceTypeOrskA: return "Orsk A (12.4 GHz)";
        case DeviceTypeOrskB: return "Orsk B (12.4 GHz)";
        default: return "unknown";
    }
}

int RunList() {
    int serials[8];
    int count = 0;
    Check("qorGetSerialNumberList", qorGetSerialNumberList(serials, &count));
    if (count == 0) {
        std::printf("no units on the bus\n");
        return 0;
    }
    std::printf("%-10s %-20s %s\n", "serial", "type", "firmware");
    // Only an open tells the type; a unit that will not open is listed with the reason.
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        try {
            OpenedUnit unit(serials[i]);
            int type = 0;
            char firmware[16] = "";
            Check("qorGetDeviceType", qorGetDeviceType(unit.device(), &type));
            Check("qorGetFirmwareString", qorGetFirmwareString(unit.device(), firmware));
            std::printf("%08d   %-20s %s\n", serials[i], DeviceTypeName(type), firmware);
        } catch (const ToolError& e) {
            std::printf("%08d   (%s)\n", serials[i], e.what());
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

int RunInfo(int serial) {
    OpenedUnit unit(serial);
    int serialNumber = 0, type = 0;
    char firmware[16] = "";
    float temperature = 0.0f, voltage = 0.0f;
    Check("qorGetSerialNumber", qorGetSerialNumber(unit.device(), &serialNumber));
    Check("qorGetDeviceType", qorGetDeviceType(unit.device(), &type));
    Check("qorGetFirmwareString", qorGetFirmwareString(unit.device(), firmware));
    Check("qorQueryTemperature", qorQueryTemperature(unit.device(), &temperature));
    Check("qorQueryDiagnostics", qorQueryDiagnostics(unit.device(), &voltage));
    std::printf("serial       %08d\n", serialNumber);
    std::printf("type         %d, %s\n", type, DeviceTypeName(type));
    std::printf("firmware     %s\n", firmware);
    std::printf("temperature  %.1f C\n", temperature);
    std::printf("voltage      %.2f V\n", voltage);
    return 0;
}

}  // namespace qortool
