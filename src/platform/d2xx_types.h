// The public D2XX interface as our code sees it: the C ABI of the vendor's
// Linux library, so that either it or the virtual instrument loads in its
// place. Shared by the library's d2xx table and the virtual instrument.
#ifndef QOR_PLATFORM_D2XX_TYPES_H
#define QOR_PLATFORM_D2XX_TYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t DWORD;
typedef uint32_t ULONG;
typedef unsigned char UCHAR;
typedef void* FT_HANDLE;
typedef ULONG FT_STATUS;
typedef ULONG FT_DEVICE;

enum {
    FT_OK = 0,
    FT_INVALID_HANDLE = 1,
    FT_DEVICE_NOT_FOUND = 2,
    FT_DEVICE_NOT_OPENED = 3,
    FT_IO_ERROR = 4,
    FT_INSUFFICIENT_RESOURCES = 5,
    FT_INVALID_PARAMETER = 6,
    FT_OTHER_ERROR = 18
};

enum { FT_PURGE_RX = 1, FT_PURGE_TX = 2 };
enum { FT_FLAGS_OPENED = 1 };

// Sizes of the serial and description buffers of the device list.
enum { FT_SERIAL_SIZE = 16, FT_DESCRIPTION_SIZE = 64 };

typedef FT_STATUS (*FT_CreateDeviceInfoList_t)(DWORD* count);
typedef FT_STATUS (*FT_GetDeviceInfoDetail_t)(DWORD index, DWORD* flags, DWORD* type, DWORD* id, DWORD* locId,
                                              void* serial, void* description, FT_HANDLE* handle);
typedef FT_STATUS (*FT_Open_t)(int index, FT_HANDLE* handle);
typedef FT_STATUS (*FT_Close_t)(FT_HANDLE handle);
typedef FT_STATUS (*FT_SetBaudRate_t)(FT_HANDLE handle, ULONG baud);
typedef FT_STATUS (*FT_SetTimeouts_t)(FT_HANDLE handle, ULONG readTimeout, ULONG writeTimeout);
typedef FT_STATUS (*FT_SetLatencyTimer_t)(FT_HANDLE handle, UCHAR latency);
typedef FT_STATUS (*FT_Write_t)(FT_HANDLE handle, void* buffer, DWORD count, DWORD* written);
typedef FT_STATUS (*FT_Read_t)(FT_HANDLE handle, void* buffer, DWORD count, DWORD* read);
typedef FT_STATUS (*FT_GetQueueStatus_t)(FT_HANDLE handle, DWORD* queued);
typedef FT_STATUS (*FT_Purge_t)(FT_HANDLE handle, ULONG mask);
typedef FT_STATUS (*FT_GetDeviceInfo_t)(FT_HANDLE handle, FT_DEVICE* device, DWORD* id, char* serial,
                                        char* description, void* reserved);
typedef FT_STATUS (*FT_CyclePort_t)(FT_HANDLE handle);
typedef FT_STATUS (*FT_EE_UARead_t)(FT_HANDLE handle, UCHAR* data, DWORD size, DWORD* read);
typedef FT_STATUS (*FT_EE_UAWrite_t)(FT_HANDLE handle, UCHAR* data, DWORD size);

#ifdef __cplusplus
}
#endif

#endif
