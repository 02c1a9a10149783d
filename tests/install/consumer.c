/* A program built against the installed library: its version, and the units
   of the D2XX library named by QOR_D2XX_LIBRARY. */
#include <stdio.h>
#include <string.h>

#include <qor_api.h>

int main(void) {
    int serials[8];
    int count = 0;
    if (strcmp(qorGetAPIVersion(), "3.1.0") != 0) return 1;
    if (qorGetSerialNumberList(serials, &count) != qorNoError) return 2;
    printf("qor_api %s: %d units\n", qorGetAPIVersion(), count);
    return count > 0 ? 0 : 3;
}
