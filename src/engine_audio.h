// The engine of the audio mode: the unit as a receiver. It tunes to the
// audio centre (CW 1040 Hz above it, so that a carrier there sounds at 1040
// Hz), selects the channel, demodulates AM, FM, upper or lower sideband or
// CW and delivers blocks of 4096 samples at 30381.94 samples/s
// (audio_chain.h). The output is not calibrated: AM and the sidebands are
// normalised by their automatic levels, FM is scaled by the channel's width.
// The level stays as the last engine that chose one left it (no decision
// here), and the automatic levels carry over from the device's last audio
// engine (AudioLevels).
//
// Thread: one, free-running. Sixteen reads of 4096 samples make a turn of
// 134.8 ms, which becomes one block in a ring of 48 blocks; then the exchange
// is signalled. A failed read is marked in the exchange and the turn goes on
// with what the read buffer held; every later get returns -11 with data, and
// a get that finds no block then returns at once. A block of a turn with a
// clipped read is marked in the ring, and the get that hands it out returns 2.
//
// The caller meets the thread in the ring: `ringCount` (atomic) counts the
// samples in it; the writer fills a block before it adds to the count and the
// reader copies after it took from it. A reader a whole ring behind loses the
// ring: the count drops by the ring's length, so `ringRead` stays valid. The
// block copies themselves are under `ringLock`, so a writer that laps a slow
// reader never writes into the block being copied. Stop: the exchange is
// shut, so a caller waiting for a block returns -6.
#ifndef QOR_ENGINE_AUDIO_H
#define QOR_ENGINE_AUDIO_H

#include <atomic>
#include <cstdint>
#include <mutex>

#include "audio_demodulators.h"
#include "ipps.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

class AudioEngine : public SweepEngine {
public:
    static constexpr int kRingBlocks = 48;
    // CW is tuned this much above the carrier.
    static constexpr double kCwOffsetHz = 1040.0;

    // `levels`: the device's automatic levels, which outlive the engine.
    AudioEngine(Settings* settings, AnalyzerLink* link, CalibrationStore* calibration, SweepInfo* sweepInfo,
                AudioLevels* levels);

    qorStatus GetSweep64(double*, double*) override { return qorWrongModeErr; }
    // qorGetAudio: exactly 4096 samples into `audio`.
    qorStatus GetSweep32(float* audio, float*) override { return GetAudio(audio); }
    qorStatus GetPartialSweep64(double*, double*, int*, int*) override { return qorNoError; }
    qorStatus GetPartialSweep32(float*, float*, int*, int*) override { return qorNoError; }

private:
    static constexpr int kBlock = 4096;
    static constexpr int kRingSamples = kRingBlocks * kBlock;

    qorStatus GetAudio(float* audio);
    void Run();
    void Deliver(const Ipp32f* block, bool clipped);

    DeviceCorr* corr;
    AudioLevels* levels;
    const double centerHz;  // on the scale divided by the timebase factor
    smart_array<Ipp32f> audioRing;
    std::atomic<int32_t> ringCount{0};
    int32_t ringWrite = 0;  // the thread's
    int32_t ringRead = 0;   // the caller's
    std::mutex ringLock;    // held for a block's copy in or out
    bool ringClipped[kRingBlocks] = {};  // under ringLock: the block's turn had a clipped read
};

}  // namespace qor

#endif
