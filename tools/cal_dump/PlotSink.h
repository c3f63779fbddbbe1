// A quick-look PNG of the table drawn by gnuplot: the good values of every
// column against time, one panel per unit (columns without units share
// one), each panel's y axis labelled with its unit and each curve named
// after its column.  gnuplot runs as a child with its script on standard
// input; its exit status and standard error are checked.  A column with
// more than kMaxPoints values is thinned to every k-th one.  The image is
// written under a temporary name and renamed once gnuplot has succeeded.
#ifndef HERON_TOOLS_CAL_DUMP_PLOTSINK_H
#define HERON_TOOLS_CAL_DUMP_PLOTSINK_H

#include <string>
#include <vector>

#include "Table.h"

class PlotSink : public TableSink {
 public:
  static const size_t kMaxPoints = 20000;

  // Draws the columns whose indices are in drawn; a height of 0 gives
  // each panel 250 pixels.
  PlotSink(const std::string& path, int width, int height, const std::vector<Column>& columns,
           const std::vector<size_t>& drawn);
  void row(const Record& r) override;
  // Runs gnuplot; throws std::runtime_error with gnuplot's message when
  // it fails, oru::IOException when the image cannot be written.
  void finish() override;

 private:
  std::string path_;
  int width_, height_;
  std::vector<Column> columns_;
  std::vector<bool> drawn_;
  std::vector<std::vector<std::pair<double, double>>> points_;
};

#endif
