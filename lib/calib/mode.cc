// mode: the operating mode of an instrument (sampling, zero, span, flushing)
// signalled as a voltage level.  Each mode has a voltage range and a settling
// time: the output is the mode's number once the voltage has stayed in its
// range for that time, and missing while a new mode settles or when no range
// holds the voltage.  licor_mode (the sample, zero and span states of a
// closed-path CO2 analyser's valves) and sf6_mode (an SF6 tracer analyser's
// sampling and trap-purge cycle) are the same conversion under the names a
// configuration gives those instruments, each with its own uses.
#include <stdio.h>
#include <stdlib.h>

#include <vector>

#include "base/logit.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"
#include "base/fatal.h"

namespace {
struct Group {
  float mode, lower, upper;
  double settle;
};
struct Use {
  std::vector<Group> groups;
  int current;        // group in force, -1 for none
  double entered;     // sample time at which the current group was entered
};

int convert(Use& u, double* time, calib_input in, float* out) {
  const float x = in.volts;
  int g = 0;
  const int ngroups = static_cast<int>(u.groups.size());
  while (g < ngroups && !(u.groups[g].lower <= x && x <= u.groups[g].upper)) ++g;
  if (g == ngroups) {
    u.current = -1;
    out[0] = CALIB_MISSING;
    return 0;
  }
  if (g != u.current) {
    u.current = g;
    u.entered = *time;
  }
  out[0] = *time - u.entered >= u.groups[g].settle ? u.groups[g].mode : CALIB_MISSING;
  return 0;
}

// Parameters, in groups of four [numbers]: mode number, lower and upper
// voltage of its range, settling time in seconds.
CalibInfo* init(const char* module, const char* version, UseTable<Use>& uses, int ichan, int nchan, void** params,
                int nparam, int nout) {
  if (nparam <= 0 || nparam % 4 != 0) {
    logit(LOG_ERR, "Illegal number of parameters(%d) to %s, should be multiple of 4", nparam, module);
    exit_status_1();
  }
  const int ngroups = nparam / 4;
  std::vector<Group> groups(static_cast<size_t>(ngroups));
  char summary[512] = "";
  size_t used = 0;
  for (int i = 0; i < ngroups; ++i) {
    Group& g = groups[i];
    g.mode = static_cast<float>(calib_param_double(params, 4 * i));
    g.lower = static_cast<float>(calib_param_double(params, 4 * i + 1));
    g.upper = static_cast<float>(calib_param_double(params, 4 * i + 2));
    g.settle = calib_param_double(params, 4 * i + 3);
    if (used < sizeof summary) {
      int n = snprintf(summary + used, sizeof summary - used, "%2d=(%4.1f,%4.1f)V (%6.2fs)  ",
                       static_cast<int>(g.mode), g.lower, g.upper, g.settle);
      if (n > 0) used += static_cast<size_t>(n);
    }
  }
  CalibInfo* info = AllocCalibInfo(nout, version);
  CalibInfoSetUnits(info, 1, "");
  CalibInfoSetParamString(info, "%s", summary);
  if (nchan > 0) {
    Use& u = uses.prepare(module, ichan, nchan);
    u.groups = std::move(groups);
    u.current = -1;
  }
  return info;
}
}  // namespace

#define MODE_MEMBER(name)                                                                     \
  namespace {                                                                                 \
  UseTable<Use> name##_uses;                                                                  \
  }                                                                                           \
  extern "C" int name(double* time, calib_input in, float* out, int ichan) {                 \
    return convert(name##_uses[ichan], time, in, out);                                         \
  }                                                                                            \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) { \
    return init(#name, #name " 1.0", name##_uses, ichan, nchan, params, nparam, nout);          \
  }

MODE_MEMBER(mode)
MODE_MEMBER(licor_mode)
MODE_MEMBER(sf6_mode)
