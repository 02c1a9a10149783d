// The text of every status, for qorGetErrorString.
#ifndef QOR_STATUS_TEXT_H
#define QOR_STATUS_TEXT_H

namespace qor {

// "Invalid Status Code" for values without a text of their own.
const char* StatusText(int status);

}  // namespace qor

#endif
