#include "status_text.h"

#include "qor_api.h"

namespace qor {
namespace {

struct StatusEntry {
    int status;
    const char* text;
};

// qorOcxoCurrentErr (-21) has no text of its own; -10 shares the text of -9.
constexpr StatusEntry kStatusTexts[] = {
    {qorUnknownErr, "Unknown error/unexpected error. Contact Quellmark Instruments"},
    {qorFrequencyRangeErr, "Span outside frequency range"},
    {qorInvalidDetectorErr, "Invalid detector value provided"},
    {qorInvalidScaleErr, "Invalid scale provided"},
    {qorBandwidthErr, "Resolution bandwidth must be between 0.1 Hz and 4.4 GHz"},
    {qorExternalReferenceNotFound, "External Reference Not Found. Will continue to use internal reference."},
    {qorOcxoWarmupErr, "Please wait 60 seconds for the 10 MHz OCXO to warm-up and try again"},
    {qorInternetErr,
     "Unable to connect to the internet or unable to find the necessary calibration file on the internet during "
     "initialization. Ensure your PC has an internet connection and try again. If it is connected to the internet "
     "and you are still receiving this message, please contact Tarven Works."},
    {qorUsbCommErr, "USB communications error"},
    {qorTrackingGeneratorNotFound, "Cannot perform requested operation while the device is active"},
    {qorDeviceActiveErr, "Cannot perform requested operation while the device is active"},
    {qorDeviceNotFoundErr, "Device not found"},
    {qorWrongModeErr, "Cannot perform the requested operation in this mode of operation"},
    {qorNotConfiguredErr, "The device is not properly configured"},
    {qorTooManyDevicesErr, "Unable to open any more devices"},
    {qorInvalidParameterErr, "Invalid parameter provided"},
    {qorDeviceNotOpenErr, "Device specified is not open"},
    {qorInvalidDeviceErr, "Invalid device number provided"},
    {qorNullPtrErr, "One or more parameters are NULL"},
    {qorNoError, "No error"},
    {qorNoCorrections, "No corrections found on device, data will be uncalibrated"},
    {qorCompression, "Device in compression. IF Overload"},
    {qorParameterClamped,
     "Supplied parameter clamped/limited to a set of known values or to within an accepted range of operating "
     "values"},
    {qorBandwidthClamped, "Supplied bandwidth limited to within an accepted range of operating values"},
};

}  // namespace

const char* StatusText(int status) {
    for (const StatusEntry& entry : kStatusTexts) {
        if (entry.status == status) return entry.text;
    }
    return "Invalid Status Code";
}

}  // namespace qor
