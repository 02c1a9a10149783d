// The D2XX function table: the one door of the library to the USB chip.
//
// The 15 functions are resolved once, on first use, with dlopen/dlsym from
// the library that QOR_D2XX_LIBRARY names (the virtual instrument in tests
// and the demo), else from the vendor's libftd2xx.so. When neither loads, or
// the library lacks one of the 15 symbols, the table holds stand-ins: the
// device list is empty and every other call fails with FT_DEVICE_NOT_FOUND,
// so that no unit is listed and every open ends in "device not found".
//
// Entries, blocking and time-outs (as the vendor's library behaves):
// - CreateDeviceInfoList: refreshes the driver's list; blocks briefly. When
//   the loaded library is a virtual instrument exporting qorsim_clock_scale,
//   the os clock takes its speed-up here (never with real hardware).
// - GetDeviceInfoDetail: reads the list built by the last refresh.
// - Open, Close, CyclePort: block for the USB transaction; CyclePort makes
//   the whole unit re-enumerate, its handles are dead afterwards.
// - Read: blocks until the count is met or the read time-out has passed,
//   and returns what it has. Write: blocks up to the write time-out.
// - GetQueueStatus, Purge, the setup calls, GetDeviceInfo, EE_UARead/Write:
//   short transactions.
// Any thread may call any entry; one handle must be driven by one thread
// at a time (the AnalyzerLink rule).
#ifndef QOR_PLATFORM_D2XX_H
#define QOR_PLATFORM_D2XX_H

#include <string>

#include "d2xx_types.h"

namespace qor::d2xx {

struct Table {
    FT_CreateDeviceInfoList_t CreateDeviceInfoList;
    FT_GetDeviceInfoDetail_t GetDeviceInfoDetail;
    FT_Open_t Open;
    FT_Close_t Close;
    FT_SetBaudRate_t SetBaudRate;
    FT_SetTimeouts_t SetTimeouts;
    FT_SetLatencyTimer_t SetLatencyTimer;
    FT_Write_t Write;
    FT_Read_t Read;
    FT_GetQueueStatus_t GetQueueStatus;
    FT_Purge_t Purge;
    FT_GetDeviceInfo_t GetDeviceInfo;
    FT_CyclePort_t CyclePort;
    FT_EE_UARead_t EE_UARead;
    FT_EE_UAWrite_t EE_UAWrite;
};

// The process table, resolved on the first call; never unloaded.
const Table& Functions();

// Empty when a D2XX library is in use; otherwise why none is: the library
// that failed to load or the symbol it lacks.
const std::string& LoadProblem();

}  // namespace qor::d2xx

#endif
