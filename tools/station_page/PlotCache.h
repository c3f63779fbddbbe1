// The quick-look plots of the station page: per station, the last hour of
// its variables calibrated and drawn as a PNG by cal_dump --plot, run as a
// child.  A plot is drawn only when asked for, and at most once per period
// however many viewers ask: within the period every request gets the image
// (or the failure) of the last drawing.  A drawing that takes more than 50 s
// is stopped and counts as failed.  Thread-safe; one station's drawing does
// not hold up another's.
#ifndef HERON_TOOLS_STATION_PAGE_PLOTCACHE_H
#define HERON_TOOLS_STATION_PAGE_PLOTCACHE_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace heron {

// The variables to plot of each station: those the site's list
// (station_page.conf, "STATION VARIABLE..." per line, "#" comments) names
// for it, else every output of its sensors in prep.config.  Stations with
// none are left out.  Throws what reading the site files throws.
// The file names may have "$" components (site/heron_fopen.h).
std::map<std::string, std::vector<std::string>> plotVariables(const std::vector<std::string>& stations,
                                                              const std::string& listFile,
                                                              const std::string& prepConfig);

class PlotCache {
 public:
  // program: cal_dump (a path, or a name searched on PATH); dir: a folder
  // of this program's own where the images are drawn.
  PlotCache(std::string program, std::string dir, const std::map<std::string, std::vector<std::string>>& variables,
            double period);

  bool knows(const std::string& station) const { return plots_.count(station) != 0; }
  // The PNG of the station's last hour into *png; false, with why in
  // *png, when it could not be drawn.  The station must be known.
  bool image(const std::string& station, std::string* png);

 private:
  struct Plot {
    std::vector<std::string> variables;
    std::mutex mutex;
    bool drawn = false, ok = false;
    double at = 0;     // monotonic seconds of the last drawing
    std::string body;  // the image, or why there is none
  };
  void draw(const std::string& station, Plot& plot);

  const std::string program_, dir_;
  const double period_;
  std::map<std::string, std::unique_ptr<Plot>> plots_;
};

}  // namespace heron

#endif
