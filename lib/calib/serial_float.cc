// serial_float: IEEE 754 single-precision fields of an instrument's serial record, in
// the byte order and layout given by the parameters.
#include "calib/conversions.h"
#include "calib/serial_layout.h"

namespace {
UseTable<SerialLayout> layouts;
}

extern "C" int serial_float(double*, calib_input in, float* out, int ichan) {
  return serial_decode(layouts[ichan], in.raw, out);
}

// Parameters: byte order [text, "big" or "little"], byte offset of the first
// field [number, optional, 0], stride [number, optional, the field's width].
// One output per field, with the empty unit.
extern "C" CalibInfo* serial_float_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return serial_decoder_init("serial_float", "serial_float 1.0", SerialKind::Float, layouts, ichan, nchan,
                             params, nparam, nout);
}
