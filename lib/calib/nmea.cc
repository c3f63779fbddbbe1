#include "calib/nmea.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "calib/decimal.h"

namespace {
int hex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}
}  // namespace

bool nmea_parse(const char* raw, const char* name, NmeaSentence* s) {
  memcpy(s->text, raw, CALIB_RECORD_ROOM);
  s->text[CALIB_RECORD_ROOM] = '\0';
  char* p = strchr(s->text, '$');
  if (!p || strlen(p) < 7 || strncmp(p + 3, name, 3) != 0 || p[6] != ',') return false;
  ++p;
  // One pass to the '*' (or the text's end): the checksum, the fields'
  // commas, and the line's end, where a sentence without a checksum stops.
  char* comma[NmeaSentence::kMaxFields];
  int ncomma = 0;
  char* eol = nullptr;
  unsigned char x = 0;
  char* q = p;
  for (; *q != '\0' && *q != '*'; ++q) {
    x ^= static_cast<unsigned char>(*q);
    if (*q == ',' && ncomma < NmeaSentence::kMaxFields)
      comma[ncomma++] = q;
    else if ((*q == '\r' || *q == '\n') && !eol)
      eol = q;
  }
  if (*q == '*') {
    const int hi = hex(q[1]), lo = hi < 0 ? -1 : hex(q[2]);
    if (lo < 0 || (hi << 4 | lo) != x) return false;
    *q = '\0';
    eol = nullptr;  // the checked text runs to the '*', line ends and all
  } else if (eol) {
    *eol = '\0';
  }
  // Fields end at their commas; the last field a sentence can have ends at
  // its comma too, and what follows is not read.
  s->nfields = 1;
  s->field[0] = p;
  for (int i = 0; i < ncomma && (!eol || comma[i] < eol); ++i) {
    *comma[i] = '\0';
    if (s->nfields < NmeaSentence::kMaxFields) s->field[s->nfields++] = comma[i] + 1;
  }
  return true;
}

double nmea_number(const NmeaSentence& s, int i) {
  if (i >= s.nfields || s.field[i][0] == '\0') return CALIB_MISSING;
  char* end;
  const double v = heron::decimal_strtod(s.field[i], &end);
  return *end == '\0' && isfinite(v) ? v : CALIB_MISSING;
}

double nmea_degrees(const NmeaSentence& s, int i) {
  const double v = nmea_number(s, i);
  if (v >= CALIB_MISSING_TEST || v < 0 || i + 1 >= s.nfields) return CALIB_MISSING;
  const char h = s.field[i + 1][0];
  if ((h != 'N' && h != 'S' && h != 'E' && h != 'W') || s.field[i + 1][1] != '\0') return CALIB_MISSING;
  const double deg = floor(v / 100.0), min = v - 100.0 * deg;
  if (min >= 60.0) return CALIB_MISSING;
  const double d = deg + min / 60.0;
  return h == 'S' || h == 'W' ? -d : d;
}

double nmea_seconds_of_day(const NmeaSentence& s, int i) {
  const double v = nmea_number(s, i);
  if (v >= CALIB_MISSING_TEST || v < 0 || v >= 240000.0) return CALIB_MISSING;
  const double hms = floor(v);
  const int h = static_cast<int>(hms / 10000), m = static_cast<int>(fmod(hms, 10000) / 100);
  const double sec = fmod(hms, 100) + (v - hms);
  if (m >= 60 || sec >= 61.0) return CALIB_MISSING;
  return h * 3600.0 + m * 60.0 + sec;
}

const char* nmea_sentence_param(const char* module, void** params, int nparam, const char* usual) {
  calib_check_nparam(module, nparam, 0, 1);
  const char* sentence = nparam == 1 ? calib_param_string(params, 0) : usual;
  if (strcmp(sentence, usual) != 0 && strcmp(sentence, "RMC") != 0)
    calib_init_fail(module, "Sentence \"%s\" is neither \"%s\" nor \"RMC\"\n", sentence, usual);
  return sentence;
}
