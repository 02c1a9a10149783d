#include "qor_api.h"

const char* qorGetAPIVersion(void) { return "3.1.0"; }
