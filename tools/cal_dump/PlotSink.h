// A quick-look PNG of the table drawn by gnuplot: the good values of every
// column against time, one panel per unit (columns without units share
// one), each panel's y axis labelled with its unit and each curve named
// after its column.  gnuplot runs as a child with its script on standard
// input; its exit status and standard error are checked.  A column with
// more than kMaxPoints values is thinned to every k-th one.  The image is
// written under a temporary name and renamed once gnuplot has succeeded.
// The plot's title names the site and the day of the values (both days
// when they cross midnight, UTC), and the time axis then labels its ticks
// with the date as well.
#ifndef HERON_TOOLS_CAL_DUMP_PLOTSINK_H
#define HERON_TOOLS_CAL_DUMP_PLOTSINK_H

#include <string>
#include <vector>

#include "Table.h"

namespace heron {

// The title and the time axis's tick format (gnuplot's strftime-like
// form) of a plot of values from `from` to `to` (seconds since 1970, UTC)
// of site: within one day "<site>, YYYY-MM-DD" and the time of day; across
// midnight "<site>, YYYY-MM-DD - YYYY-MM-DD" and the day and month above
// the time of day.
struct PlotHeading {
  std::string title, timeFormat;
};
PlotHeading plotHeading(const std::string& site, double from, double to);

}  // namespace heron

class PlotSink : public TableSink {
 public:
  static const size_t kMaxPoints = 20000;

  // Draws the columns whose indices are in drawn; a height of 0 gives
  // each panel 250 pixels.  site names the site in the title.
  PlotSink(const std::string& path, int width, int height, const std::vector<Column>& columns,
           const std::vector<size_t>& drawn, const std::string& site);
  void row(const Record& r) override;
  // Runs gnuplot; throws std::runtime_error with gnuplot's message when
  // it fails, oru::IOException when the image cannot be written.
  void finish() override;

 private:
  std::string path_, site_;
  int width_, height_;
  std::vector<Column> columns_;
  std::vector<bool> drawn_;
  std::vector<std::vector<std::pair<double, double>>> points_;
};

#endif
