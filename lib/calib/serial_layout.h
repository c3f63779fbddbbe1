// The fields of an instrument's serial record that the serial_ decoders
// read: nout numbers of one kind (IEEE 754 single, signed or unsigned 16-bit)
// in one byte order, the first at a byte offset and each next one a stride
// further on.  A conversion gets only a pointer to the record, so the channel
// must deliver records that hold the whole layout; init refuses a layout that
// reaches past 255 bytes, the most a sample carries.
#ifndef HERON_CALIB_SERIAL_LAYOUT_H
#define HERON_CALIB_SERIAL_LAYOUT_H

#include <string>

#include "calib/calib_common.h"

enum class SerialKind { Float, Short, UShort };

struct SerialLayout {
  float (*read)(const void*) = nullptr;  // one field in the record's byte order
  const char* order = "";                // "big" or "little"
  int offset = 0, stride = 0, nfields = 0;

  // Field i of the record; a float field that is not a finite number (an
  // instrument's NaN or infinity) is missing.
  float field(const char* rec, int i) const { return read(rec + offset + i * stride); }
};

// The layout of a decoder's parameters first .. first+count-1: byte order
// [text, "big" or "little"], then, when count allows, the byte offset of the
// first field [number, 0 when absent] and the stride [number, the field's
// width when absent], for nout fields.  A fault is reported by
// calib_init_fail for the module.
SerialLayout serial_layout(const char* module, SerialKind kind, void** params, int count, int nout);

// "order=big, offset=0, stride=4"
std::string serial_layout_summary(const SerialLayout& l);

// The init of serial_float, serial_short and serial_ushort: 1 to 3 layout
// parameters, nout outputs with the empty unit, the layout stored for use
// ichan when nchan is nonzero.
CalibInfo* serial_decoder_init(const char* module, const char* version, SerialKind kind,
                               UseTable<SerialLayout>& uses, int ichan, int nchan, void** params,
                               int nparam, int nout);

// Fields 0 .. nfields-1 of rec into out.  Returns 0.
int serial_decode(const SerialLayout& l, const char* rec, float* out);

// Defines a plain decoder `name` (its conversion and its init) over a
// per-use layout table of its own; the plain decoders differ only in the
// kind of their fields.  Parameters: byte order [text, "big" or "little"],
// byte offset of the first field [number, optional, 0], stride [number,
// optional, the field's width]; one output per field, with the empty unit.
#define HERON_SERIAL_DECODER(name, kind)                                                              \
  namespace {                                                                                         \
  UseTable<SerialLayout> name##_layouts;                                                              \
  }                                                                                                   \
  extern "C" int name(double*, calib_input in, float* out, int ichan) {                               \
    return serial_decode(name##_layouts[ichan], in.raw, out);                                         \
  }                                                                                                   \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) {      \
    return serial_decoder_init(#name, #name " 1.0", kind, name##_layouts, ichan, nchan, params, nparam, \
                               nout);                                                                 \
  }

#endif
