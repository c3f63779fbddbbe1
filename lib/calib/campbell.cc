// The Campbell datalogger record family: an output array in the loggers'
// binary final-storage format (calib/campbell_words.h), of which nout values
// are taken, from a first index on.  The members differ only in the row of
// the table below: which array-start form they know, whether the start word
// must lead the record, and whether the values are mixed 2- and 4-byte words
// recognised one by one or 4-byte high-resolution values in fixed places.
//
// A conversion sees the record in a zero-filled room of CALIB_RECORD_ROOM
// bytes and reads nothing past it.  The array ends at the next array start
// or at the room's end; values it does not hold are missing.


#include "calib/calib_common.h"
#include "calib/campbell_words.h"
#include "calib/conversions.h"

namespace {

struct Member {
  const char* module;
  const char* version;
  CampbellLogger logger;
  bool start_required;  // the record must begin with an array start
  bool high_only;       // fixed 4-byte high-resolution places
};

enum MemberIndex { kBinary, kCr10, k21x, kHr, kMembers };
const Member kFamily[kMembers] = {
    {"campbell_binary", "campbell_binary 1.0", CampbellLogger::CR10, false, false},
    {"camp_cr10", "camp_cr10 1.0", CampbellLogger::CR10, true, false},
    {"camp_21x_bin", "camp_21x_bin 1.0", CampbellLogger::L21X, true, false},
    {"camp_hr_bin", "camp_hr_bin 1.0", CampbellLogger::CR10, false, true},
};

struct Use {
  int id;     // the array id wanted, -1 for any
  int first;  // index of the first value wanted
  int nout;
};
UseTable<Use> uses[kMembers];

// Walks mixed words from byte p, storing values first .. first+nout-1.
void walk_mixed(const Member& m, const unsigned char* r, int p, const Use& u, float* out) {
  const int end = u.first + u.nout;
  for (int k = 0; k < end && p + 2 <= CALIB_RECORD_ROOM;) {
    float v;
    switch (campbell_word(r + p, m.logger)) {
      case CampbellWord::Dummy: p += 2; continue;
      case CampbellWord::Start: return;  // the next array
      case CampbellWord::Low: v = campbell_low(r + p); p += 2; break;
      case CampbellWord::HighFirst:
        // A first word without its second is a misaligned value, not two.
        if (p + 4 <= CALIB_RECORD_ROOM && campbell_word(r + p + 2, m.logger) == CampbellWord::HighSecond) {
          v = campbell_high(r + p);
          p += 4;
        } else {
          v = CALIB_MISSING;
          p += 2;
        }
        break;
      default: v = CALIB_MISSING; p += 2; break;
    }
    if (k >= u.first) out[k - u.first] = v;
    ++k;
  }
}

int convert(MemberIndex i, const char* raw, float* out, int ichan) {
  const Member& m = kFamily[i];
  const Use& u = uses[i][ichan];
  const unsigned char* r = reinterpret_cast<const unsigned char*>(raw);
  for (int k = 0; k < u.nout; ++k) out[k] = CALIB_MISSING;
  const int id = campbell_array_id(r, m.logger);
  if ((id < 0 && (m.start_required || u.id >= 0)) || (u.id >= 0 && id != u.id)) return 0;
  const int p = id < 0 ? 0 : 2;
  if (!m.high_only) {
    walk_mixed(m, r, p, u, out);
    return 0;
  }
  for (int k = 0; k < u.nout; ++k) {
    const int at = p + 4 * (u.first + k);
    if (at + 4 > CALIB_RECORD_ROOM) break;
    out[k] = campbell_high(r + at);
  }
  return 0;
}

// Parameters: expected array id [number, optional; -1 or absent for any],
// index of the first value wanted [number, optional, 0], then optionally one
// unit [text] per output.
CalibInfo* init(MemberIndex i, int ichan, int nchan, void** params, int nparam, int nout) {
  const Member& m = kFamily[i];
  if (nout < 1 || nout > CALIB_RECORD_ROOM / 2)
    calib_init_fail(m.module, "Invalid number of outputs (%d), should be 1 to %d\n", nout, CALIB_RECORD_ROOM / 2);
  if (nparam > 2 && nparam != 2 + nout)
    calib_init_fail(m.module, "Invalid number of parameters (%d), should be 0 to 2, or %d with units\n", nparam,
                    2 + nout);
  Use u{-1, 0, nout};
  const double id = nparam > 0 ? calib_param_double(params, 0) : -1;
  const double first = nparam > 1 ? calib_param_double(params, 1) : 0;
  const int maxid = m.logger == CampbellLogger::CR10 ? 1023 : 511;
  if (!(id >= -1 && id <= maxid) || id != static_cast<int>(id))
    calib_init_fail(m.module, "Array id %g is not -1 (any) or a whole number from 0 to %d\n", id, maxid);
  if (!(first >= 0 && first + nout <= CALIB_RECORD_ROOM / 2) || first != static_cast<int>(first))
    calib_init_fail(m.module, "First value %g and %d outputs do not fit in a record\n", first, nout);
  u.id = static_cast<int>(id);
  u.first = static_cast<int>(first);
  CalibInfo* info = AllocCalibInfo(nout, m.version);
  for (int k = 0; k < nout; ++k) CalibInfoAppendUnits(info, nparam > 2 ? calib_param_string(params, 2 + k) : "");
  CalibInfoSetParamString(info, "id=%d, first=%d", u.id, u.first);
  if (nchan > 0) uses[i].prepare(m.module, ichan, nchan) = u;
  return info;
}

}  // namespace

#define CAMPBELL_MEMBER(name, index)                                                          \
  extern "C" int name(double*, calib_input in, float* out, int ichan) {                      \
    return convert(index, in.raw, out, ichan);                                                 \
  }                                                                                            \
  extern "C" CalibInfo* name##_init(int ichan, int nchan, void** params, int nparam, int nout) { \
    return init(index, ichan, nchan, params, nparam, nout);                                    \
  }

CAMPBELL_MEMBER(campbell_binary, kBinary)
CAMPBELL_MEMBER(camp_cr10, kCr10)
CAMPBELL_MEMBER(camp_21x_bin, k21x)
CAMPBELL_MEMBER(camp_hr_bin, kHr)
