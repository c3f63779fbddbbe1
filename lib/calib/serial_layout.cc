#include "calib/serial_layout.h"

#include <math.h>
#include <string.h>

#include "base/flop_convert.h"

namespace {
// The largest record a sample carries.
constexpr int kRecordMax = 255;

// flop_ readers take the big-endian order, noflop_ the little-endian one.
float finite_or_missing(float v) { return isfinite(v) ? v : CALIB_MISSING; }
float big_float(const void* p) { return finite_or_missing(flop_float(p)); }
float little_float(const void* p) { return finite_or_missing(noflop_float(p)); }
float big_short(const void* p) { return flop_short(p); }
float little_short(const void* p) { return noflop_short(p); }
float big_ushort(const void* p) { return flop_ushort(p); }
float little_ushort(const void* p) { return noflop_ushort(p); }

// A whole-number parameter of a layout; `what` names it in the fault.
int whole_param(const char* module, void** params, int i, const char* what) {
  const double v = calib_param_double(params, i);
  if (!(v >= 0 && v <= kRecordMax) || v != floor(v))
    calib_init_fail(module, "The %s %g is not a whole number from 0 to %d\n", what, v, kRecordMax);
  return static_cast<int>(v);
}
}  // namespace

SerialLayout serial_layout(const char* module, SerialKind kind, void** params, int count, int nout) {
  if (nout < 1) calib_init_fail(module, "Invalid number of outputs (%d), should be at least 1\n", nout);
  const char* order = calib_param_string(params, 0);
  const bool big = strcmp(order, "big") == 0;
  if (!big && strcmp(order, "little") != 0)
    calib_init_fail(module, "Byte order \"%s\" is neither \"big\" nor \"little\"\n", order);
  SerialLayout l;
  l.order = big ? "big" : "little";
  const int width = kind == SerialKind::Float ? 4 : 2;
  switch (kind) {
    case SerialKind::Float: l.read = big ? big_float : little_float; break;
    case SerialKind::Short: l.read = big ? big_short : little_short; break;
    case SerialKind::UShort: l.read = big ? big_ushort : little_ushort; break;
  }
  l.offset = count > 1 ? whole_param(module, params, 1, "byte offset") : 0;
  l.stride = count > 2 ? whole_param(module, params, 2, "stride") : width;
  if (l.stride < width)
    calib_init_fail(module, "The stride %d is less than a field's %d bytes\n", l.stride, width);
  l.nfields = nout;
  // With nout at most 255 the end stays far inside an int.
  if (nout > kRecordMax || l.offset + (nout - 1) * l.stride + width > kRecordMax)
    calib_init_fail(module, "%d fields from byte %d every %d bytes do not fit in a record of %d bytes\n",
                    nout, l.offset, l.stride, kRecordMax);
  return l;
}

std::string serial_layout_summary(const SerialLayout& l) {
  return std::string("order=") + l.order + ", offset=" + std::to_string(l.offset) +
         ", stride=" + std::to_string(l.stride);
}

CalibInfo* serial_decoder_init(const char* module, const char* version, SerialKind kind,
                               UseTable<SerialLayout>& uses, int ichan, int nchan, void** params,
                               int nparam, int nout) {
  calib_check_nparam(module, nparam, 1, 3);
  const SerialLayout l = serial_layout(module, kind, params, nparam, nout);
  CalibInfo* info = AllocCalibInfo(nout, version);
  for (int i = 0; i < nout; ++i) CalibInfoAppendUnits(info, "");
  CalibInfoSetParamString(info, "%s", serial_layout_summary(l).c_str());
  if (nchan > 0) uses.prepare(module, ichan, nchan) = l;
  return info;
}

int serial_decode(const SerialLayout& l, const char* rec, float* out) {
  for (int i = 0; i < l.nfields; ++i) out[i] = l.field(rec, i);
  return 0;
}
