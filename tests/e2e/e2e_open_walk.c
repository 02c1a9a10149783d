/* A plain C application of the library: lists the analyzers on the bus, opens
 * each by serial number, reads what identifies it and closes it again. It also
 * proves that the public header compiles as C. */
#include <stdio.h>

#include "qor_api.h"

/* One line per unit into `report`: "serial firmware type temperature".
 * Returns the number of units walked, or the first failing status. */
int e2e_open_walk(char* report, size_t capacity) {
    int serials[8];
    int count = 0;
    size_t used = 0;
    qorStatus status = qorGetSerialNumberList(serials, &count);
    if (status != qorNoError) return status;
    report[0] = '\0';
    for (int i = 0; i < count; ++i) {
        int device = -1;
        int serial = 0;
        int type = DeviceTypeNone;
        char firmware[16];
        float temperature = 0.0f;
        status = qorOpenDeviceBySerialNumber(&device, serials[i]);
        if (status == qorNoError) status = qorGetSerialNumber(device, &serial);
        if (status == qorNoError) status = qorGetFirmwareString(device, firmware);
        if (status == qorNoError) status = qorGetDeviceType(device, &type);
        if (status == qorNoError) status = qorQueryTemperature(device, &temperature);
        if (device >= 0) {
            const qorStatus closed = qorCloseDevice(device);
            if (status == qorNoError) status = closed;
        }
        if (status != qorNoError) return status;
        const int written = snprintf(report + used, capacity - used, "%d %s %d %.4f\n", serial, firmware, type,
                                     (double)temperature);
        if (written < 0 || (size_t)written >= capacity - used) return qorUnknownErr;
        used += (size_t)written;
    }
    return count;
}
