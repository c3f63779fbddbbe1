// serial_short: signed 16-bit integer fields of an instrument's serial record, in
// the byte order and layout given by the parameters.
#include "calib/conversions.h"
#include "calib/serial_layout.h"

HERON_SERIAL_DECODER(serial_short, SerialKind::Short)
