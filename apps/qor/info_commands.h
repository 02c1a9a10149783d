// `qor list` and `qor info`.
#ifndef QOR_TOOL_INFO_COMMANDS_H
#define QOR_TOOL_INFO_COMMANDS_H

namespace qortool {

// "Orsk B (12.4 GHz)" for a type of qorGetDeviceType.
const char* DeviceTypeName(int type);

int RunList();
int RunInfo(int serial);

}  // namespace qortool

#endif
