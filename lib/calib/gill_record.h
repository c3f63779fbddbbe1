// The binary result message of a Gill research ultrasonic anemometer
// (R2, R3, HS):
//   0xBA 0xBA StaA StaD W1 W1 W2 W2 W3 W3 C C [T T] [A A]... cc
// Wind components (or axis speeds) in 0.01 m/s, two's complement, high byte
// first; C the speed of sound in 0.01 m/s, unsigned; T, when configured, the
// absolute temperature in 0.01 K (unsigned) or the temperature in 0.01 degC
// (signed); then the configured analogue inputs; cc the exclusive or of
// every byte after the two start bytes.  The acquisition may strip the start
// bytes, so the layout says whether they are there.
#ifndef HERON_CALIB_GILL_RECORD_H
#define HERON_CALIB_GILL_RECORD_H

struct GillLayout {
  enum Temp { None, Kelvin, Celsius };
  bool header = true;  // the two 0xBA start bytes lead the record
  Temp temp = None;
  int analog = 0;      // analogue input words before the checksum
  bool left = false;   // a left-handed instrument (R2): v changes sign once in the u, v, w frame
};

struct GillRecord {
  float wind[3];  // m/s
  float c;        // m/s
  float t;        // degC, 1e37 when the record has none
  int status;     // StaA * 256 + StaD
};

// The layout from the parameters at the given indices (-1, or an index at or
// past nparam, for the default): header [number, 0 or 1, default 1],
// temperature field [text, "K", "C" or "none", default "none"],
// handedness [text, "right" or "left", default "right"], analogue inputs
// [number, 0 to 8, default 0].  A fault is an init fault of module.
GillLayout gill_layout(const char* module, void** params, int nparam, int i_header, int i_temp, int i_hand,
                       int i_analog);

// Decodes r by the layout; false when the start bytes are wrong or the
// checksum does not match.  Reads at most 2 + 13 + 2 * 8 bytes.  The
// components are as sent: handedness is the caller's, after any axis
// transformation.
bool gill_decode(const GillLayout& l, const unsigned char* r, GillRecord* g);

// The parameter text of a temperature form: "K", "C" or "none".
const char* gill_temp_name(GillLayout::Temp t);

#endif
