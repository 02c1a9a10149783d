/* The public header compiles as C; this translation unit proves it. */
#include "qor_api.h"

int qor_header_from_c(void) {
    SelfTestResults results;
    IQPacket packet;
    int serials[8];
    int count = 0;
    results.highBandPass = false;
    packet.iqData = 0;
    packet.iqCount = 0;
    (void)results;
    (void)packet;
    if (qorGetSerialNumberList(serials, &count) != qorNoError) return -1;
    return qorGetErrorString(qorNoError)[0] == 'N' && ModeIdle == -1 && DeviceTypeOrskB == 4 ? 1 : 0;
}
