// cal_dump's progress line: "samples read, per cent of the span", redrawn in
// place on a terminal's standard error while the archives are read.  While
// it shows, it owns the terminal's line: a message the library reports
// meanwhile clears the line first, goes out whole on a line of its own, and
// the progress line is drawn again after it.
#ifndef HERON_TOOLS_CAL_DUMP_PROGRESS_H
#define HERON_TOOLS_CAL_DUMP_PROGRESS_H

#include <stdio.h>

#include <string>

#include "base/logit.h"

namespace heron {

class Progress {
 public:
  // Draws nothing unless on; [start, end) is the span read.  The line goes
  // to out, the terminal whose standard error it shares.
  Progress(bool on, double start, double end, FILE* out = stderr);
  // Clears the line and gives the messages their previous end back.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // samples read so far, t the time of the last; redrawn at most twice a
  // second.
  void update(long samples, double t);

 private:
  void message(const std::string& text);  // the standard-error end meanwhile

  bool on_;
  double start_, end_, last_ = 0;
  FILE* out_;
  std::string line_;  // the line shown, empty while none is
  LogEnds previous_;
};

}  // namespace heron

#endif
