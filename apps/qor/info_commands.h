// `qor list` and `qor info`.
#ifndef QOR_TOOL_INFO_COMMANDS_H
#define QOR_TOOL_INFO_COMMANDS_H

namespace qortool {

int RunList();
int RunInfo(int serial);

}  // namespace qortool

#endif
