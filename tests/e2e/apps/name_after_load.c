/* An application that names its D2XX library itself, after the library has
 * loaded: `name_after_load LIBRARY` sets QOR_D2XX_LIBRARY, lists the units
 * through the C API and prints their serial numbers, one per line. It leaves
 * the first unit open, as an application may: the library closes it at exit,
 * when the instrument may have taken its bus down already. */
#include <stdio.h>
#include <stdlib.h>

#include "qor_api.h"

int main(int argc, char** argv) {
    if (argc != 2 || getenv("QOR_D2XX_LIBRARY") != NULL) return 2;
    setenv("QOR_D2XX_LIBRARY", argv[1], 1);
    int serials[8];
    int count = 0;
    if (qorGetSerialNumberList(serials, &count) != qorNoError) return 1;
    for (int i = 0; i < count; ++i) printf("%d\n", serials[i]);
    int device = -1;
    return count > 0 && qorOpenDevice(&device) != qorNoError;
}
