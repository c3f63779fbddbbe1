#include "samples/TimeTagGuard.h"

#include <math.h>

#include "base/logit.h"
#include "time/UTime.h"

namespace {
const long kMsecsPerDay = 86400000L;

// Time of a log message, as "%Y %b %d j%j %H:%M:%S".
struct TimeText {
  explicit TimeText(double t) { UTime(t).to_charstar(text, sizeof text, "%Y %b %d j%j %H:%M:%S"); }
  char text[64];
};
}  // namespace

TimeTagGuard::TimeTagGuard(TTtype type, double now)
    : type_(type), t0day(0), lastTT(0), lastUT(0), n_lt(0), n_gt(0), n_lt_warn(0), firstInFile(0), N_LT_LIMIT(3) {
  restart(now);
}

void TimeTagGuard::restart(double start) {
  t0day = floor(start / 86400.0) * 86400.0;
  lastUT = start;
  lastTT = static_cast<long>(1000.0 * fmod(start, 86400.0));
}

TTtype TimeTagGuard::siteType() {
  // A conversion settles the site's type.
  if (TTConv::type() == unknown) TTConv::Msecs(0);
  return TTConv::type();
}

void TimeTagGuard::SetT0day(double t) { t0day = floor(t / 86400.0) * 86400.0; }

double TimeTagGuard::guarded(long ms, const char* name, bool liveRollover) {
  if (ms > kMsecsPerDay || ms < 0) return BIGBANG;
  if (ms == kMsecsPerDay) ms = 0;
  const double t = t0day + ms * 0.001;
  if (ms >= lastTT || t >= lastUT) return later(ms, t, name);
  n_gt = 0;
  if (ms < lastTT - LATE_IN_DAY_MSEC) return nextDay(ms, t, name);
  if (n_lt > N_LT_LIMIT) return believeEarlier(ms, t, name, liveRollover);
  return earlier(ms, t, name);
}

double TimeTagGuard::later(long ms, double t, const char* name) {
  if (t < lastUT + GT_LIMIT_SEC) {
    n_lt = n_gt = n_lt_warn = firstInFile = 0;
    return accept(ms, t);
  }
  n_lt = n_lt_warn = 0;
  if (n_gt > N_GT_LIMIT) {
    n_gt = 0;
    return accept(ms, t);
  }
  if (t > lastUT + LATE_IN_DAY_SEC) {
    // A rollover was assumed too early: the tag belongs to the day before.
    t0day -= 86400.0;
    n_gt = firstInFile = 0;
    return accept(ms, t - 86400.0);
  }
  ++n_gt;
  logit(LOG_ERR, "%s: sample time %s: %d later samples tossed", name, TimeText(t).text, n_gt);
  return BIGBANG;
}

double TimeTagGuard::nextDay(long ms, double t, const char* name) {
  t0day += 86400.0;
  t += 86400.0;
  n_lt = n_lt_warn = 0;
  logit(LOG_INFO, "%s: midnight rollover. Sample time: %s", name, TimeText(t).text);
  return accept(ms, t);
}

double TimeTagGuard::believeEarlier(long ms, double t, const char* name, bool liveRollover) {
  if (!liveRollover) {
    logit(LOG_INFO, "%s: sample time %s: %d earlier samples. Guess it is time to believe them", name,
          TimeText(t).text, n_lt);
  } else {
    t0day += 86400.0;
    t += 86400.0;
    logit(LOG_INFO, "%s: sample time %s: Assumed midnight rollover due to %d earlier times received", name,
          TimeText(t).text, n_lt);
  }
  n_lt = n_lt_warn = 0;
  return accept(ms, t);
}

double TimeTagGuard::earlier(long ms, double t, const char* name) {
  if (ms < lastTT - LT_LIMIT_MSEC) {
    ++n_lt;
    ++n_lt_warn;
    logit(LOG_ERR, "%s: sample time %s: %d earlier samples tossed", name, TimeText(t).text, n_lt);
    return BIGBANG;
  }
  if (ms >= lastTT - LT_WARN_MSEC || ++n_lt_warn > N_LT_WARN) {
    n_lt = n_lt_warn = 0;
    return accept(ms, t);
  }
  logit(LOG_ERR, "%s: sample time %s: %d earlier samples tossed", name, TimeText(t).text, n_lt_warn);
  return BIGBANG;
}
