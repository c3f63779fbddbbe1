#include "StatusCache.h"

#include <time.h>

#include "base/clock.h"

heron::StatusCache::StatusCache(Ask ask, double period) : ask_(std::move(ask)), period_(period) {}

std::string heron::StatusCache::json() {
  std::lock_guard<std::mutex> hold(mutex_);
  const double now = monotonicSeconds();
  if (!asked_once_ || now - asked_ >= period_) {
    json_ = statusJson(ask_(), time(nullptr));
    asked_ = monotonicSeconds();
    asked_once_ = true;
  }
  return json_;
}
