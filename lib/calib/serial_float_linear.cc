// serial_float_linear: IEEE 754 single-precision fields of an instrument's
// serial record, each put through its own straight line.
#include <stdio.h>

#include <string>
#include <vector>

#include "calib/conversions.h"
#include "calib/linear_family.h"
#include "calib/serial_layout.h"

namespace {
const char kModule[] = "serial_float_linear";
const char kVersion[] = "serial_float_linear 1.0";
struct Use {
  SerialLayout layout;
  std::vector<Line> lines;  // one per field
};
UseTable<Use> uses;
}  // namespace

extern "C" int serial_float_linear(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  for (int i = 0; i < u.layout.nfields; ++i) {
    const float x = u.layout.field(in.raw, i);
    out[i] = x >= CALIB_MISSING_TEST ? CALIB_MISSING : u.lines[static_cast<size_t>(i)].at(x);
  }
  return 0;
}

// Parameters: byte order [text, "big" or "little"], byte offset of the first
// field [number], stride [number], then for each of the nout fields either
// slope, intercept [numbers] or slope, intercept [numbers], unit [text], the
// same form for all fields.  Without units every output has the empty unit.
extern "C" CalibInfo* serial_float_linear_init(int ichan, int nchan, void** params, int nparam,
                                               int nout) {
  const long bare = 3 + 2L * nout, with_units = 3 + 3L * nout;
  if (nparam != bare && nparam != with_units)
    calib_init_fail(kModule, "Invalid number of parameters (%d), should be %ld or %ld\n", nparam, bare,
                    with_units);
  Use u;
  u.layout = serial_layout(kModule, SerialKind::Float, params, 3, nout);
  const int group = nparam == bare ? 2 : 3;
  CalibInfo* info = AllocCalibInfo(nout, kVersion);
  std::string summary = serial_layout_summary(u.layout) + ":";
  for (int i = 0; i < nout; ++i) {
    const int p = 3 + group * i;
    Line l;
    calib_param_floats(params, p, {&l.slope, &l.intcpt});
    u.lines.push_back(l);
    CalibInfoAppendUnits(info, group == 3 ? calib_param_string(params, p + 2) : "");
    char line[64];
    snprintf(line, sizeof line, " %.4g*x%+.4g", l.slope, l.intcpt);
    summary += line;
  }
  CalibInfoSetParamString(info, "%s", summary.c_str());
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = std::move(u);
  return info;
}
