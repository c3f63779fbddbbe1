// licor_7500: the RS-232 record of a LI-COR LI-7500 open-path CO2/H2O
// analyser, either unlabelled (the selected fields, tab-separated, in the
// order the instrument was told to send them) or labelled:
//   (Data (Ndx 1545)(DiagVal 250)(CO2D 3.2183277e1)(H2OD 1.9687008e2)...)
// Outputs: CO2 and H2O molar densities (mmol/m^3), cell temperature (degC),
// pressure (kPa), the diagnostic value, and its low four bits, the
// automatic gain control code.  The diagnostic's high four bits are the
// instrument's OK flags (1 = OK); the values are kept whatever they say,
// for processing to judge.
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "calib/decimal.h"
#include "calib/calib_common.h"
#include "calib/conversions.h"

namespace {
const char kModule[] = "licor_7500";
constexpr int kOutputs = 6;
// The record's names of outputs 0 .. 4.
const char* const kNames[] = {"CO2D", "H2OD", "Temp", "Pres", "DiagVal"};
constexpr int kNamed = 5;

struct Use {
  bool labels;
  std::vector<int> output_of_field;  // unlabelled: output index of each field, -1 for none
};
UseTable<Use> uses;

double number(const char* p, const char* stops) {
  char* end;
  const double v = heron::decimal_strtod(p, &end);
  return end != p && isfinite(v) && (*end == '\0' || strchr(stops, *end)) ? v : CALIB_MISSING;
}

void labelled(const char* text, double* v) {
  for (int k = 0; k < kNamed; ++k) {
    const std::string key = std::string("(") + kNames[k] + " ";
    const char* p = strstr(text, key.c_str());
    v[k] = p ? number(p + key.size(), ")") : CALIB_MISSING;
  }
}

// Tab-separated fields: two tabs in a row are an empty field, not one gap.
void unlabelled(const Use& u, char* text, double* v) {
  text[strcspn(text, "\r\n")] = '\0';
  char* tok = text;
  for (size_t f = 0; tok && f < u.output_of_field.size(); ++f) {
    char* tab = strchr(tok, '\t');
    if (tab) *tab = '\0';
    if (u.output_of_field[f] >= 0) v[u.output_of_field[f]] = number(tok, " ");
    tok = tab ? tab + 1 : nullptr;
  }
}
}  // namespace

extern "C" int licor_7500(double*, calib_input in, float* out, int ichan) {
  const Use& u = uses[ichan];
  char text[CALIB_RECORD_ROOM + 1];
  memcpy(text, in.raw, CALIB_RECORD_ROOM);
  text[CALIB_RECORD_ROOM] = '\0';
  double v[kNamed];
  for (double& x : v) x = CALIB_MISSING;
  if (u.labels)
    labelled(text, v);
  else
    unlabelled(u, text, v);
  for (int k = 0; k < kNamed; ++k) out[k] = static_cast<float>(v[k]);
  const double d = v[4];
  out[5] = d >= 0 && d < 256 && d == floor(d) ? static_cast<float>(static_cast<int>(d) & 15) : CALIB_MISSING;
  return 0;
}

// Parameters: the field list [text]: the names of the unlabelled record's
// fields in order, separated by commas (CO2D, H2OD, Temp, Pres and DiagVal
// are taken, any other name is skipped), or the word "labels" for the
// labelled record.
extern "C" CalibInfo* licor_7500_init(int ichan, int nchan, void** params, int nparam, int nout) {
  calib_check_nparam(kModule, nparam, 1, 1);
  const char* list = calib_param_string(params, 0);
  Use u{strcmp(list, "labels") == 0, {}};
  if (!u.labels) {
    const std::string s(list);
    for (size_t at = 0; at <= s.size();) {
      const size_t comma = std::min(s.find(',', at), s.size());
      const std::string name = s.substr(at, comma - at);
      int k = 0;
      while (k < kNamed && name != kNames[k]) ++k;
      u.output_of_field.push_back(k < kNamed ? k : -1);
      at = comma + 1;
    }
  }
  if (nchan > 0 && nout != kOutputs)
    calib_init_fail(kModule, "Invalid number of outputs (%d), should be %d\n", nout, kOutputs);
  CalibInfo* info = calib_info("licor_7500 1.0", nout, {"mmol/m^3", "mmol/m^3", "degC", "kPa", "", ""});
  CalibInfoSetParamString(info, "%s", list);
  if (nchan > 0) uses.prepare(kModule, ichan, nchan) = std::move(u);
  return info;
}
