#include "calib/adapt_forecast.h"

#include <math.h>

#include "calib/calib_common.h"

extern "C" void adapt_forecast_reset(adapt_state* st) {
  st->n = 0;
  st->mean = st->var = st->cov1 = st->prev = 0.0;
  st->run = 0;
  st->spike = ADAPT_GOOD;
  st->forecast = 0.0;
  st->last_good_time = -INFINITY;
}

extern "C" void adapt_forecast_init(adapt_state* st, double tau, double k, double min_sd, int despike) {
  st->alpha = 1.0 / (tau >= 1.0 ? tau : 1.0);
  st->k = k;
  st->min_sd = min_sd;
  st->despike = despike;
  adapt_forecast_reset(st);
}

namespace {

// Takes an accepted value into the statistics.  Early on the weight is
// 1/n, so that the first estimates are plain averages rather than biased
// towards the first value; it settles at 1/tau.
void update(adapt_state* st, double x) {
  ++st->n;
  const double w = 1.0 / static_cast<double>(st->n) > st->alpha ? 1.0 / static_cast<double>(st->n) : st->alpha;
  if (st->n == 1) {
    st->mean = x;
    st->var = 0.0;
    st->cov1 = 0.0;
  } else {
    const double d = x - st->mean;
    const double dprev = st->prev - st->mean;
    st->mean += w * d;
    st->var = (1.0 - w) * (st->var + w * d * d);
    st->cov1 = (1.0 - w) * st->cov1 + w * d * dprev;
  }
  st->prev = x;
}

}  // namespace

extern "C" float adapt_forecast(float x, double t, adapt_state* st) {
  const bool missing = !(fabsf(x) < CALIB_MISSING_TEST);  // NaN counts as missing too
  if (st->n == 0) {
    if (missing) {
      st->spike = ADAPT_MISSING;
      return CALIB_MISSING;
    }
    update(st, x);
    st->forecast = x;
    st->spike = ADAPT_GOOD;
    st->last_good_time = t;
    return x;
  }

  double r = st->var > 0.0 ? st->cov1 / st->var : 0.0;
  if (r > 1.0) r = 1.0;
  if (r < -1.0) r = -1.0;
  const double f = st->mean + r * (st->prev - st->mean);
  double sd = sqrt(st->var * (1.0 - r * r));
  if (sd < st->min_sd) sd = st->min_sd;
  st->forecast = f;

  if (missing) {
    // Nothing measured to keep or replace: the gap stays a gap, and the
    // forecast carries the series on for the next value.
    st->spike = ADAPT_MISSING;
    st->prev = f;
    return CALIB_MISSING;
  }
  if (st->n >= ADAPT_WARMUP && fabs(x - f) > st->k * sd) {
    if (++st->run > ADAPT_MAX_RUN) {
      // A lasting change of level, not a spike: start again from here.
      adapt_forecast_reset(st);
      update(st, x);
      st->forecast = x;
      st->spike = ADAPT_GOOD;
      st->last_good_time = t;
      return x;
    }
    st->spike = ADAPT_SPIKE;
    st->prev = f;
    return st->despike ? static_cast<float>(f) : x;
  }
  st->run = 0;
  update(st, x);
  st->spike = ADAPT_GOOD;
  st->last_good_time = t;
  return x;
}
