// Turns the time tags of one input's samples (milliseconds of the UTC day)
// into absolute times, guarding against tags that jump back or forward:
// midnight rollover, stale samples, samples from the future.  A tag that
// cannot be trusted gets BIGBANG and the caller drops its sample; enough
// such tags in a row are believed at last.  Tossed tags never move the
// time state, so each is compared with the last accepted one.
//
// The guard converts tags by the type it is given (unknown: the site's,
// through TTConv, settled at the first conversion).
#ifndef HERON_TIMETAGGUARD_H
#define HERON_TIMETAGGUARD_H

#include "time/TTConv.h"

class TimeTagGuard {
 public:
  static const long LATE_IN_DAY_MSEC = 85800000;
  static const int LATE_IN_DAY_SEC = 85800;
  static const long LT_LIMIT_MSEC = 1800000;
  static const long LT_WARN_MSEC = 360000;
  static const int N_LT_WARN = 3;
  static constexpr double GT_LIMIT_SEC = 7200.0;
  static const int N_GT_LIMIT = 3;
  static constexpr double BIGBANG = -1e37;

  // The time state starts at now (seconds since the epoch); three earlier
  // tags are tossed before they are believed.
  TimeTagGuard(TTtype type, double now);

  // Tag in wire order to milliseconds of the day.  The site's type is
  // taken at the first conversion (reading the site's channel table if no
  // conversion has yet), and kept.
  long msecs(long tt) {
    if (type_ == unknown) type_ = siteType();
    return TTConv::Msecs(tt, type_);
  }

  // The usual case, inline: a tag not earlier than the last accepted one
  // and less than two hours after it; t is then its time.  Every other tag
  // goes to guarded().
  bool isUsual(long ms, double& t) const {
    if (ms < lastTT || ms >= 86400000L) return false;
    t = t0day + ms * 0.001;
    return t < lastUT + GT_LIMIT_SEC;
  }
  // Accepts such a tag; returns t.
  double acceptUsual(long ms, double t) {
    n_lt = n_gt = n_lt_warn = firstInFile = 0;
    lastTT = ms;
    lastUT = t;
    return t;
  }
  // Absolute time of a tag of ms milliseconds, or BIGBANG.  name names the
  // input in the log lines; liveRollover says that earlier times believed
  // at last mean a new day (a live source) rather than earlier samples
  // (files).
  double guarded(long ms, const char* name, bool liveRollover);

  // No time known yet: the state a file input has before its first file's
  // start time is applied.
  void forget() {
    lastTT = -99999;
    lastUT = BIGBANG;
  }
  // Counts the day from the time start (a file's start time).
  void restart(double start);
  // A new file begins, whose earlier tags are believed after limit of
  // them.
  void newFile(int limit) {
    firstInFile = 1;
    N_LT_LIMIT = limit;
  }
  void setLimit(int limit) { N_LT_LIMIT = limit; }

  // The UTC midnight that tags count from; set rounds t down to one.
  void SetT0day(double t);
  double GetT0day() const { return t0day; }

 private:
  static TTtype siteType();
  // The steps of guarded() for a tag of ms milliseconds at time t: one
  // not earlier than the last accepted; one much earlier, of the next day;
  // earlier ones believed at last; other earlier ones.
  double later(long ms, double t, const char* name);
  double nextDay(long ms, double t, const char* name);
  double believeEarlier(long ms, double t, const char* name, bool liveRollover);
  double earlier(long ms, double t, const char* name);
  double accept(long ms, double t) {
    lastTT = ms;
    lastUT = t;
    return t;
  }

  TTtype type_;
  double t0day;
  long lastTT;
  double lastUT;
  int n_lt;
  int n_gt;
  int n_lt_warn;
  int firstInFile;
  int N_LT_LIMIT;
};

#endif
