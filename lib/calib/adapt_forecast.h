// Adaptive spike screening of one turbulence variable.
//
// Running estimates of the mean, the variance and the lag-one
// autocorrelation r of the variable are kept with an exponential memory of
// tau samples.  Each new value is compared with the forecast
//   f = mean + r * (previous - mean),
// whose error has the standard deviation sd = sqrt(variance * (1 - r^2)).
// A value farther than k * sd from f is a spike: it does not enter the
// statistics, and the forecast stands in for it as the previous value of the
// next forecast.  A missing value (1e37 or more) is treated the same way.
// After a run of spikes longer than a limit the variable is taken to have
// changed level for real and the statistics start again from the new value.
#ifndef HERON_CALIB_ADAPT_FORECAST_H
#define HERON_CALIB_ADAPT_FORECAST_H

#ifdef __cplusplus
extern "C" {
#endif

// Spike indicator values.
enum {
  ADAPT_GOOD = 0,     // accepted as measured
  ADAPT_SPIKE = 1,    // outside the forecast band
  ADAPT_MISSING = 2,  // no value came in
};

typedef struct adapt_state {
  // Tuning, set by adapt_forecast_init.
  double alpha;    // 1 / tau, the weight of a new value in the statistics
  double k;        // spike threshold in forecast-error deviations
  double min_sd;   // floor of the forecast-error deviation (the resolution)
  int despike;     // 1: a spike is replaced by the forecast; 0: only flagged
  // Statistics.
  long n;          // values taken into the statistics since the last reset
  double mean, var, cov1;
  double prev;     // the previous value, as the forecast saw it
  int run;         // spikes in a row
  // Results of the last call.
  int spike;       // ADAPT_GOOD, ADAPT_SPIKE or ADAPT_MISSING
  double forecast; // the forecast the last value was tested against
  double last_good_time;  // sample time of the last value accepted
} adapt_state;

// Values accepted before spikes are looked for, while the statistics form.
#define ADAPT_WARMUP 20
// Spikes in a row after which the statistics start again.
#define ADAPT_MAX_RUN 10

// Sets the tuning: tau in samples (at least 1), k, the resolution floor and
// the mode, and starts the statistics afresh.
void adapt_forecast_init(adapt_state* st, double tau, double k, double min_sd, int despike);

// Forgets the statistics, keeping the tuning.
void adapt_forecast_reset(adapt_state* st);

// Screens value x taken at time t; returns the value to use: x itself, the
// forecast in place of a spike (despike mode), or 1e37 for a missing value.
// The indicator is left in st->spike.
float adapt_forecast(float x, double t, adapt_state* st);

#ifdef __cplusplus
}
#endif

#endif
