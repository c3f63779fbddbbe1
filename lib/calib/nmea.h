// One NMEA 0183 sentence from a record: "$ttSSS,f1,f2,...*hh" with any
// two-character talker (GP, GN, GL ...), the sentence name SSS, the comma-
// separated fields and the optional checksum hh, the exclusive or of the
// characters between '$' and '*' as two hexadecimal digits.  The record is
// read within the record room and up to its first zero byte.
#ifndef HERON_CALIB_NMEA_H
#define HERON_CALIB_NMEA_H

#include "calib/calib_common.h"

struct NmeaSentence {
  static constexpr int kMaxFields = 24;
  char text[CALIB_RECORD_ROOM + 1];  // the sentence, cut into fields in place
  const char* field[kMaxFields];     // field[0] is the address ("GPGGA")
  int nfields = 0;
};

// The sentence an NMEA conversion reads: its one optional parameter, else
// `usual`; anything but `usual` or "RMC" is an init fault of module.
const char* nmea_sentence_param(const char* module, void** params, int nparam, const char* usual);

// Finds the sentence named name (three letters) in raw and splits it into s.
// False when there is none, or its checksum is present and does not match.
bool nmea_parse(const char* raw, const char* name, NmeaSentence* s);

// Field i as a number; 1e37 when the field is absent, empty or not a number.
double nmea_number(const NmeaSentence& s, int i);

// Degrees from the "ddmm.mmmm" (or "dddmm.mmmm") field i and the hemisphere
// letter of field i + 1: negative for S and W; 1e37 when either is unusable.
double nmea_degrees(const NmeaSentence& s, int i);

// Seconds of the day from the "hhmmss.ss" field i, or 1e37.
double nmea_seconds_of_day(const NmeaSentence& s, int i);

#endif
