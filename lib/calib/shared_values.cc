// Values that some conversions publish for others of the same scan.
#include "calib/conversions.h"

extern "C" {
float sharedValues[SHARED_VALUES_COUNT] = {1e37f};
float* temp_AIR = nullptr;
double* temp_vaisala = nullptr;
int temp_vaisala_uses = 0;
}
