/* A first look at the library from C: its version and the units on the bus. */
#include <stdio.h>

#include "qor_api.h"

int main(void) {
    int serials[8];
    int count = 0;
    qorStatus status;

    printf("qor_api %s, product %s\n", qorGetAPIVersion(), qorGetProductID());
    status = qorGetSerialNumberList(serials, &count);
    if (status != qorNoError) {
        fprintf(stderr, "qorGetSerialNumberList: %s\n", qorGetErrorString(status));
        return 1;
    }
    printf("%d unit%s on the bus\n", count, count == 1 ? "" : "s");
    for (int i = 0; i < count; ++i) {
        int device = -1;
        int type = 0;
        char firmware[16] = "";
        float temperature = 0.0f;
        status = qorOpenDeviceBySerialNumber(&device, serials[i]);
        if (status != qorNoError) {
            printf("  %08d  cannot open: %s\n", serials[i], qorGetErrorString(status));
            continue;
        }
        qorGetDeviceType(device, &type);
        qorGetFirmwareString(device, firmware);
        qorQueryTemperature(device, &temperature);
        printf("  %08d  type %d  firmware %-15s  %.1f C\n", serials[i], type, firmware, temperature);
        qorCloseDevice(device);
    }
    return 0;
}
