#include "iq_stream.h"

#include "settings.h"

namespace qorbench {

int DecimationOrder(int decimation) {
    int order = 0;
    while ((1 << order) < decimation) ++order;
    return order;
}

double WidestBandwidth(int decimation) { return qor::IqBandwidthLimit(DecimationOrder(decimation)); }

qorStatus StartIq(int device, int decimation) {
    qorConfigCenterSpan(device, 1e9, 100e3);
    qorConfigLevel(device, -20.0);
    const qorStatus configured = qorConfigIQ(device, decimation, WidestBandwidth(decimation));
    return configured < 0 ? configured : qorInitiate(device, ModeIQ);
}

IqBlockReader::IqBlockReader(int device, int decimation)
    : device(device), iq(2 * static_cast<std::size_t>(kIqInputBlock / decimation)) {}

qorStatus IqBlockReader::Next(bool purge) {
    IQPacket packet{iq.data(), static_cast<int32_t>(iq.size() / 2), purge, 0, 0, 0, 0};
    const qorStatus status = qorGetIQData(device, &packet);
    lossFlags += packet.sampleLoss != 0;
    return status;
}

}  // namespace qorbench
