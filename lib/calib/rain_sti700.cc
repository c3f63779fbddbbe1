// rain_sti700: the ASCII message of an optical (scintillation) rain gauge
// of the ORG-700 / ORG-800 line, read as the ORG-815's poll message:
//   R- .118 000.709 01** 4999 0044 0062 +25
// a present-weather code when there is weather (R-, R, R+, S-, ...; ER for
// an error), then blank-separated fields: rain rate (mm/h), accumulation
// (mm), status, signal, 1-minute raw, baseline, temperature (degC).  Which
// field is which is configured, counted from 0 after the weather code.
// Outputs: rain rate (mm/h), accumulation (mm), and the temperature (degC)
// when its field is given.
#include <ctype.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "calib/decimal.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kModule[] = "rain_sti700";
constexpr int kMaxFields = 16;
struct Use {
  int field[3];  // rate, accumulation, temperature
  int nout;
};
UseTable<Use> uses;

// Whether a token is a number's start rather than a weather code.
bool numeric(const char* tok) {
  const auto digit = [](char c) { return isdigit(static_cast<unsigned char>(c)) != 0; };
  return digit(tok[0]) || (strchr("+-.", tok[0]) && (digit(tok[1]) || tok[1] == '.'));
}

bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The next blank-separated token from *p, cut in place, or null at the
// text's end (strtok_r's reading, without its cost).
char* token(char** p) {
  char* t = *p;
  while (blank(*t)) ++t;
  if (*t == '\0') return nullptr;
  char* e = t;
  while (*e != '\0' && !blank(*e)) ++e;
  if (*e != '\0') *e++ = '\0';
  *p = e;
  return t;
}
}  // namespace

extern "C" int rain_sti700(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  for (int k = 0; k < u.nout; ++k) out[k] = CALIB_MISSING;
  char text[CALIB_RECORD_ROOM + 1];
  memcpy(text, in.raw, CALIB_RECORD_ROOM);
  text[CALIB_RECORD_ROOM] = '\0';
  char* rest = text;
  char* tok = token(&rest);
  if (tok && !numeric(tok)) {
    if (strcmp(tok, "ER") == 0) return 0;  // the gauge reports an error
    tok = token(&rest);
  }
  for (int f = 0; tok && f < kMaxFields; ++f, tok = token(&rest))
    for (int k = 0; k < u.nout; ++k)
      if (u.field[k] == f) {
        char* end;
        const double v = heron::decimal_strtod(tok, &end);
        if (*end == '\0' && end != tok && isfinite(v)) out[k] = static_cast<float>(v);
      }
  return 0;
}

// Parameters, all optional: the field of the rain rate [number, 0], of the
// accumulation [number, 1], of the temperature [number; the use then has
// three outputs].
extern "C" CalibInfo* rain_sti700_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 0, 3);
  Use u{{0, 1, -1}, nparam == 3 ? 3 : 2};
  for (int k = 0; k < nparam; ++k) {
    const double f = calib_param_double(params, k);
    if (!(f >= 0 && f < kMaxFields) || f != floor(f))
      calib_init_fail(kModule, "Field %g is not a whole number from 0 to %d\n", f, kMaxFields - 1);
    u.field[k] = static_cast<int>(f);
  }
  if (nchan > 0 && nout != u.nout)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, u.nout);
  CalibInfo* info = calib_info("rain_sti700 1.0", nout, {"mm/h", "mm", "degC"});
  CalibInfoSetParamString(info, "rate=%d, accumulation=%d, temperature=%d", u.field[0], u.field[1], u.field[2]);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = u;
  return info;
}
