#include "Progress.h"

#include "base/clock.h"

namespace {
const char kClear[] = "\r\033[K";  // back to the line's start, erase to its end
}

heron::Progress::Progress(bool on, double start, double end, FILE* out)
    : on_(on), start_(start), end_(end), out_(out) {
  if (!on_) return;
  previous_ = setLogEnds({});
  setLogEnds({previous_.systemLog, [this](const std::string& text) { message(text); }});
}

heron::Progress::~Progress() {
  if (!on_) return;
  if (!line_.empty()) fputs(kClear, out_);
  setLogEnds(previous_);
}

void heron::Progress::update(long samples, double t) {
  if (!on_ || (samples & 1023) != 0) return;
  const double now = monotonicSeconds();
  if (now - last_ < 0.5) return;
  last_ = now;
  char text[96];
  snprintf(text, sizeof text, "\rcal_dump: %ld samples read, %3.0f%% of the span", samples,
           100.0 * (t - start_) / (end_ - start_));
  line_ = text;
  fputs(text, out_);
}

void heron::Progress::message(const std::string& text) {
  if (!line_.empty()) fputs(kClear, out_);
  previous_.standardError(text);
  if (!line_.empty()) fputs(line_.c_str(), out_);
}
