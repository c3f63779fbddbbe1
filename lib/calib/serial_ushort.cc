// serial_ushort: unsigned 16-bit integer fields of an instrument's serial record, in
// the byte order and layout given by the parameters.
#include "calib/conversions.h"
#include "calib/serial_layout.h"

namespace {
UseTable<SerialLayout> layouts;
}

extern "C" int serial_ushort(double*, calib_input in, float* out, int ichan) {
  return serial_decode(layouts[ichan], in.raw, out);
}

// Parameters: byte order [text, "big" or "little"], byte offset of the first
// field [number, optional, 0], stride [number, optional, the field's width].
// One output per field, with the empty unit.
extern "C" CalibInfo* serial_ushort_init(int ichan, int nchan, void** params, int nparam, int nout) {
  return serial_decoder_init("serial_ushort", "serial_ushort 1.0", SerialKind::UShort, layouts, ichan, nchan,
                             params, nparam, nout);
}
