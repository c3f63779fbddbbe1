// The status document of the station page, asked of the stations' ingest
// servers at most once per period however many viewers ask for it: the
// first request after the period asks (the others wait for it and share
// its answer), and the requests within the period get the copy kept.
// Thread-safe; the ask is the library's (status/StationAsk.h).
#ifndef HERON_TOOLS_STATION_PAGE_STATUSCACHE_H
#define HERON_TOOLS_STATION_PAGE_STATUSCACHE_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "status/StationAsk.h"

namespace heron {

class StatusCache {
 public:
  // How the views are asked: askStations on a host, or a test's own.
  using Ask = std::function<std::vector<StationView>()>;
  StatusCache(Ask ask, double period);

  // The JSON document, at most period seconds old.
  std::string json();

 private:
  Ask ask_;
  const double period_;
  std::mutex mutex_;
  std::string json_;
  double asked_ = 0;  // monotonic seconds of the last ask; 0: never
  bool asked_once_ = false;
};

}  // namespace heron

#endif
