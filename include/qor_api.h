/*
 * qor_api: host library of the qor USB spectrum analyzers and their tracking
 * generator.
 *
 * The instrument tunes its local oscillator and streams complex samples at
 * 486111.11 per second; this library turns that into swept spectra, real-time
 * persistence images, calibrated I/Q, demodulated audio and scalar network
 * sweeps, on up to 8 devices at once.
 *
 * Life cycle of a device:
 *   1. qorSetCalFilePath (optional), before any open.
 *   2. qorGetSerialNumberList, then qorOpenDevice or qorOpenDeviceBySerialNumber:
 *      the returned index (0..7) names the device in every later call.
 *   3. qorConfig... calls in any order. They only write the settings of the
 *      index; a change takes effect at the next qorInitiate.
 *   4. qorInitiate(device, mode), then the query and retrieval calls of the mode.
 *   5. qorInitiate again, qorAbort, qorCloseDevice or qorPreset.
 *
 * Every call that takes a device checks, in this order: the index is 0..7
 * (qorInvalidDeviceErr), the device is open (qorDeviceNotOpenErr), required
 * pointers are not null (qorNullPtrErr), then its own conditions. A refused
 * call changes nothing. Negative statuses are errors, positive ones warnings.
 *
 * Threads: calls on different devices may run on different threads. On one
 * device, the calls that change its state (qorInitiate, qorAbort,
 * qorCloseDevice, qorPreset, and the diagnostics that stop the mode) follow
 * one another whole when made from several threads. A retrieval may wait on
 * one thread while another thread makes qorConfig... calls, or leaves the
 * mode with one of those calls: the waiting retrieval then returns within
 * 100 ms with qorNotConfiguredErr (-6), the device having no mode any more,
 * which is how a user interface stops a measurement it is waiting for.
 *
 * No call throws: a failure to get memory or a thread inside the library
 * returns qorUnknownErr (-666) and leaves the device as it was (idle, when a
 * mode could not be started).
 *
 * Units: frequencies in Hz, levels in dBm, times in milliseconds.
 */
#ifndef QOR_API_H
#define QOR_API_H

#ifdef __cplusplus
#include <cstdint>
#else
#include <stdbool.h>
#include <stdint.h>
#endif

#if defined(QOR_BUILDING_LIBRARY)
#define QOR_API __attribute__((visibility("default")))
#else
#define QOR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Status of every call: 0 success, negative error, positive warning. */
typedef enum qorStatus {
    qorUnknownErr = -666,
    qorFrequencyRangeErr = -99,
    qorInvalidDetectorErr = -95,
    qorInvalidScaleErr = -94,
    qorBandwidthErr = -91,
    qorExternalReferenceNotFound = -89,
    qorOcxoCurrentErr = -21,
    qorOcxoWarmupErr = -20,
    qorInternetErr = -12,
    qorUsbCommErr = -11,
    qorTrackingGeneratorNotFound = -10,
    qorDeviceActiveErr = -9,
    qorDeviceNotFoundErr = -8,
    qorWrongModeErr = -7,
    qorNotConfiguredErr = -6,
    qorTooManyDevicesErr = -5,
    qorInvalidParameterErr = -4,
    qorDeviceNotOpenErr = -3,
    qorInvalidDeviceErr = -2,
    qorNullPtrErr = -1,
    qorNoError = 0,
    qorNoCorrections = 1,
    qorCompression = 2,
    qorParameterClamped = 3,
    qorBandwidthClamped = 4
} qorStatus;

/* Modes of qorInitiate. */
#define ModeIdle (-1)
#define ModeSweep 0
#define ModeRealTime 1
#define ModeIQ 2
#define ModeAudio 3
#define ModeTGSweep 4

/* Device types of qorGetDeviceType: 1 and 2 the 4.4 GHz family, 3 and 4 the 12.4 GHz family. */
#define DeviceTypeNone 0
#define DeviceTypeVelm 1
#define DeviceTypeVelmB 2
#define DeviceTypeOrskA 3
#define DeviceTypeOrskB 4

/* One I/Q retrieval of qorGetIQData. The caller fills the first three fields. */
typedef struct IQPacket {
    float* iqData;     /* caller's buffer of interleaved I, Q; 2 x iqCount floats */
    int32_t iqCount;   /* complex samples wanted */
    int32_t purge;     /* true: drop what is queued before serving */
    int32_t dataRemaining; /* out: samples still queued */
    int32_t sampleLoss;    /* out: true when samples were lost since the last retrieval */
    int32_t sec;           /* out: wall-clock seconds since 1970 (low 32 bits) of the first sample */
    int32_t milli;         /* out: its milliseconds */
} IQPacket;

/* Result of qorSelfTest: levels in dB relative to full scale. */
typedef struct SelfTestResults {
    bool highBandPass;
    bool lowBandPass;
    bool attenuatorPass;
    bool lowIfPass;
    bool preampPass;
    double highBandLevel;
    double lowBandLevel;
    double attenuatorDelta;
    double lowIfLevel;
    double preampLevel;
} SelfTestResults;

/* ---- Lifecycle ----------------------------------------------------------
 * qorGetSerialNumberList lists the free analyzers on the bus (at most 8).
 * Opening pairs the unit's two USB channels, cycles its port, identifies it
 * and fetches its calibration (from the cache folder, the unit or the
 * download endpoint): it takes several seconds. qorPreset closes the index
 * after cycling the unit's port and returns at once; the unit is off the bus
 * for about 2.5 s while it re-enumerates, and the next list or open waits
 * out what is left of that time. */
QOR_API qorStatus qorGetSerialNumberList(int serialNumbers[8], int* deviceCount);
QOR_API qorStatus qorOpenDevice(int* device);
QOR_API qorStatus qorOpenDeviceBySerialNumber(int* device, int serialNumber);
QOR_API qorStatus qorCloseDevice(int device);
QOR_API qorStatus qorPreset(int device);
/* Prefix of the calibration cache files; null is the empty string. Always 0. */
QOR_API qorStatus qorSetCalFilePath(const char* path);

/* ---- Information ------------------------------------------------------- */
QOR_API qorStatus qorGetSerialNumber(int device, int* serialNumber);
/* Copies at most 16 bytes with the terminating NUL. */
QOR_API qorStatus qorGetFirmwareString(int device, char* firmware);
QOR_API qorStatus qorGetDeviceType(int device, int* type);
QOR_API const char* qorGetAPIVersion(void);
QOR_API const char* qorGetProductID(void);
/* Static text of a status; "Invalid Status Code" for unknown values. */
QOR_API const char* qorGetErrorString(qorStatus status);

/* ---- Configuration ------------------------------------------------------
 * Each writes the settings of the index only; refused values change nothing,
 * held values return qorParameterClamped (3) where the call says so. A value
 * that is no number (NaN) is refused everywhere, with qorInvalidParameterErr
 * where the call has no status of its own for it. */
/* detector 0 min/max, 1 average; scale 0, 2 dBm and 1, 3 mV. */
QOR_API qorStatus qorConfigAcquisition(int device, int detector, int scale);
QOR_API qorStatus qorConfigCenterSpan(int device, double center, double span);
/* Reference level, held to -200..20 dBm; returns attenuator and gain to automatic. */
QOR_API qorStatus qorConfigLevel(int device, double refLevel);
/* atten 0..3, gain 0..2, negative = automatic. */
QOR_API qorStatus qorConfigGainAtten(int device, int atten, int gain, bool preamp);
/* rbw 0.1 Hz to 6 MHz, vbw 0.1 Hz up to rbw; reject: image rejection (two
   views of every frequency, the lower reading kept). In hopped sweeps of
   wide spans, images below 16.1 MHz are removed at RBW 30 kHz and below,
   only partly (to about -15 dBc) at 100 kHz and not at all at 250 kHz;
   at RBW 150 to 250 kHz a tone's level depends on where it sits in its
   200 kHz step by up to about 0.6 dB. Narrow sweeps hold rbw / vbw so that
   a capture lasts at most 8.6 s (qorInitiate returns 4). */
QOR_API qorStatus qorConfigSweepCoupling(int device, double rbw, double vbw, bool reject);
QOR_API qorStatus qorConfigRBWShape(int device, int rbwShape);
/* 0 log, 1 voltage, 2 power, 3 no video processing. */
QOR_API qorStatus qorConfigProcUnits(int device, int procUnits);
/* decimation a power of two 1..128; bandwidth held to the decimation's limit. */
QOR_API qorStatus qorConfigIQ(int device, int decimation, double bandwidth);
/* audioType 0 AM, 1 FM, 2 USB, 3 LSB, 4 CW (a carrier at centerFreq sounds at
   1040 Hz); bandwidth: the channel around centerFreq, Hz; audioLowPass at
   486111.11 samples/s and audioHighPass at the audio rate, Hz; fmDeemphasis in
   microseconds. Stored as given, but each must be finite (else -4). The audio mode keeps the attenuator, gain and
   preamplifier that the engine before it chose. */
QOR_API qorStatus qorConfigAudio(int device, int audioType, double centerFreq, double bandwidth,
                                 double audioLowPass, double audioHighPass, double fmDeemphasis);
QOR_API qorStatus qorConfigRealTime(int device, double frameScale, int frameRate);
QOR_API qorStatus qorConfigRealTimeOverlap(int device, double overlap);
QOR_API qorStatus qorConfigTgSweep(int device, int sweepSize, bool tgHighRange, bool tgPreamp);

/* ---- Run control --------------------------------------------------------
 * qorInitiate stops what runs, takes the settings of the index and starts the
 * mode: 0 started, 4 a bandwidth was limited, -4 unknown mode or real-time
 * span out of range. qorAbort stops the mode; the device stays open. */
QOR_API qorStatus qorInitiate(int device, int mode);
QOR_API qorStatus qorAbort(int device);

/* ---- Queries ----------------------------------------------------------- */
QOR_API qorStatus qorQuerySweepInfo(int device, int* sweepLength, double* startFreq, double* binSize);
QOR_API qorStatus qorQueryStreamInfo(int device, int* returnLen, double* bandwidth, double* samplesPerSecond);
QOR_API qorStatus qorQueryRealTimeFrameInfo(int device, int* frameWidth, int* frameHeight);
QOR_API qorStatus qorQueryRealTimePoi(int device, double* poi);
/* Reads the sensor when idle, else the value remembered from the last read. */
QOR_API qorStatus qorQueryTemperature(int device, float* temperature);
/* Idle only (-9 otherwise). */
QOR_API qorStatus qorQueryDiagnostics(int device, float* voltage);

/* ---- Get data -----------------------------------------------------------
 * Retrieval calls block until the engine has what they ask for. A USB failure
 * while a mode runs makes every later retrieval return qorUsbCommErr (-11);
 * qorAbort, qorCloseDevice or qorPreset are then the way out. */
/* Arrays of sweepLength values (qorQuerySweepInfo), in dBm or mV by scale. */
QOR_API qorStatus qorGetSweep_32f(int device, float* min, float* max);
QOR_API qorStatus qorGetSweep_64f(int device, double* min, double* max);
/* The bins [*start, *stop) of the sweep in progress are new. */
QOR_API qorStatus qorGetPartialSweep_32f(int device, float* min, float* max, int* start, int* stop);
QOR_API qorStatus qorGetPartialSweep_64f(int device, double* min, double* max, int* start, int* stop);
QOR_API qorStatus qorGetRealTimeFrame(int device, float* sweep, float* frame, float* alphaFrame);
/* returnLen complex samples (qorQueryStreamInfo), interleaved I, Q. */
QOR_API qorStatus qorGetIQ_32f(int device, void* iq);
QOR_API qorStatus qorGetIQ_64f(int device, void* iq);
QOR_API qorStatus qorGetIQ(int device, void* iq, int iqCount, int purge);
QOR_API qorStatus qorGetIQData(int device, IQPacket* packet);
QOR_API qorStatus qorGetIQDataUnpacked(int device, void* iqData, int iqCount, int purge,
                                       int* dataRemaining, int* sampleLoss, int* sec, int* milli);
/* 4096 audio samples at 30381.94 samples/s from a ring of 48 blocks (a reader
   a whole ring behind loses it); AM and the sidebands normalised to their
   carrier, FM scaled by the channel. -6 outside the audio mode. */
QOR_API qorStatus qorGetAudio(int device, float* audio);

/* ---- Tracking generator ------------------------------------------------ */
QOR_API qorStatus qorAttachTg(int device);
QOR_API qorStatus qorIsTgAttached(int device, bool* attached);
/* flag 1: store the thru; 2: store the high-range thru. */
QOR_API qorStatus qorStoreTgThru(int device, int flag);
QOR_API qorStatus qorSetTg(int device, double frequency, double amplitude);
QOR_API qorStatus qorSetTgReference(int device, int reference);
QOR_API qorStatus qorGetTgFreqAmpl(int device, double* frequency, double* amplitude);

/* ---- Timebase and diagnostics ------------------------------------------
 * qorSetTimebase, qorConfigIFOutput and qorSelfTest stop the running mode. */
/* 1 reference output, 2 external reference input. */
QOR_API qorStatus qorSetTimebase(int device, int timebase);
QOR_API qorStatus qorConfigIFOutput(int device, double inputFreq, double outputFreq, int inputAtten, int outputGain);
QOR_API qorStatus qorSelfTest(int device, SelfTestResults* results);

#ifdef __cplusplus
} /* extern "C" */

/* These three carry C++ linkage: their exported names are decorated with
   their signatures, so they are available to C++ callers only. */
/* The factor by which the unit's frequencies are off: finite and within
   0.999 to 1.001 (1000 ppm), else qorInvalidParameterErr (-4) and nothing
   changes. It counts from the next qorInitiate. */
QOR_API qorStatus qorSetTimebaseCorrection(int device, double correction);
QOR_API qorStatus qorGetTimebaseCorrection(int device, double* correction);
/* Stores the correction in the unit's EEPROM for the next open, and makes it
   the running one; the same range, or 0.0 to store none (the running factor
   stays). A stored value outside the range is ignored at open. */
QOR_API qorStatus qorAdjustTimebase(int device, double correction);
#endif

#endif /* QOR_API_H */
