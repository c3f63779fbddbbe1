#include "calib/gill_record.h"

#include <string.h>

#include "calib/calib_common.h"

namespace {
constexpr unsigned char kStart = 0xba;
constexpr int kMaxAnalog = 8;

int word(const unsigned char* p) { return static_cast<short>(p[0] << 8 | p[1]); }
unsigned uword(const unsigned char* p) { return static_cast<unsigned>(p[0] << 8 | p[1]); }
bool given(int i, int nparam) { return i >= 0 && i < nparam; }
}  // namespace

GillLayout gill_layout(const char* module, void** params, int nparam, int i_header, int i_temp, int i_hand,
                       int i_analog) {
  GillLayout l;
  if (given(i_header, nparam)) {
    const double h = calib_param_double(params, i_header);
    if (h != 0 && h != 1) calib_init_fail(module, "The header switch %g is neither 0 nor 1\n", h);
    l.header = h == 1;
  }
  if (given(i_temp, nparam)) {
    const char* t = calib_param_string(params, i_temp);
    if (strcmp(t, "K") == 0)
      l.temp = GillLayout::Kelvin;
    else if (strcmp(t, "C") == 0)
      l.temp = GillLayout::Celsius;
    else if (strcmp(t, "none") != 0)
      calib_init_fail(module, "Temperature field \"%s\" is none of \"K\", \"C\" and \"none\"\n", t);
  }
  if (given(i_hand, nparam)) {
    const char* h = calib_param_string(params, i_hand);
    l.left = strcmp(h, "left") == 0;
    if (!l.left && strcmp(h, "right") != 0)
      calib_init_fail(module, "Handedness \"%s\" is neither \"right\" nor \"left\"\n", h);
  }
  if (given(i_analog, nparam)) {
    const double a = calib_param_double(params, i_analog);
    if (!(a >= 0 && a <= kMaxAnalog) || a != static_cast<int>(a))
      calib_init_fail(module, "Analogue inputs %g is not a whole number from 0 to %d\n", a, kMaxAnalog);
    l.analog = static_cast<int>(a);
  }
  return l;
}

bool gill_decode(const GillLayout& l, const unsigned char* r, GillRecord* g) {
  if (l.header) {
    if (r[0] != kStart || r[1] != kStart) return false;
    r += 2;
  }
  const int n = 10 + (l.temp != GillLayout::None ? 2 : 0) + 2 * l.analog;  // bytes before cc
  unsigned char x = 0;
  for (int i = 0; i < n; ++i) x ^= r[i];
  if (x != r[n]) return false;
  g->status = r[0] << 8 | r[1];
  for (int i = 0; i < 3; ++i) g->wind[i] = static_cast<float>(word(r + 2 + 2 * i) / 100.0);
  g->c = static_cast<float>(uword(r + 8) / 100.0);
  switch (l.temp) {
    case GillLayout::Kelvin: g->t = static_cast<float>(uword(r + 10) / 100.0 - 273.15); break;
    case GillLayout::Celsius: g->t = static_cast<float>(word(r + 10) / 100.0); break;
    default: g->t = CALIB_MISSING; break;
  }
  return true;
}

const char* gill_temp_name(GillLayout::Temp t) {
  return t == GillLayout::Kelvin ? "K" : t == GillLayout::Celsius ? "C" : "none";
}
