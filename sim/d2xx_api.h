// Declarations of the 15 D2XX functions that the virtual instrument exports,
// for its own tests (the library resolves them at run time instead).
#ifndef QOR_SIM_D2XX_API_H
#define QOR_SIM_D2XX_API_H

#include "d2xx_types.h"

extern "C" {
FT_STATUS FT_CreateDeviceInfoList(DWORD* count);
FT_STATUS FT_GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD* type, DWORD* id, DWORD* locId, void* serial,
                                 void* description, FT_HANDLE* handle);
FT_STATUS FT_Open(int index, FT_HANDLE* handle);
FT_STATUS FT_Close(FT_HANDLE handle);
FT_STATUS FT_SetBaudRate(FT_HANDLE handle, ULONG baud);
FT_STATUS FT_SetTimeouts(FT_HANDLE handle, ULONG readTimeout, ULONG writeTimeout);
FT_STATUS FT_SetLatencyTimer(FT_HANDLE handle, UCHAR latency);
FT_STATUS FT_Write(FT_HANDLE handle, void* buffer, DWORD count, DWORD* written);
FT_STATUS FT_Read(FT_HANDLE handle, void* buffer, DWORD count, DWORD* read);
FT_STATUS FT_GetQueueStatus(FT_HANDLE handle, DWORD* queued);
FT_STATUS FT_Purge(FT_HANDLE handle, ULONG mask);
FT_STATUS FT_GetDeviceInfo(FT_HANDLE handle, FT_DEVICE* device, DWORD* id, char* serial, char* description,
                           void* reserved);
FT_STATUS FT_CyclePort(FT_HANDLE handle);
FT_STATUS FT_EE_UARead(FT_HANDLE handle, UCHAR* data, DWORD size, DWORD* read);
FT_STATUS FT_EE_UAWrite(FT_HANDLE handle, UCHAR* data, DWORD size);
}

#endif
