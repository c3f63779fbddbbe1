#include "PlotSink.h"

#include <errno.h>
#include <math.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include "OutputFile.h"
#include "base/Exception.h"

namespace {

// text as a gnuplot single-quoted string.
std::string quoted(const std::string& text) {
  std::string q = "'";
  for (char c : text) q += c == '\'' ? std::string("''") : std::string(1, c);
  return q + "'";
}

// text as a gnuplot double-quoted string, whose \n is a line break.
std::string doubleQuoted(const std::string& text) {
  std::string q = "\"";
  for (char c : text)
    q += c == '\n' ? std::string("\\n") : c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  return q + "\"";
}

bool writeAll(int fd, const std::string& s) {
  for (size_t done = 0; done < s.size();) {
    const ssize_t n = write(fd, s.data() + done, s.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

using Points = std::vector<std::vector<std::pair<double, double>>>;
using Curves = std::map<std::string, std::vector<size_t>>;

// The script's settings: the terminal, the image, the time axis.
std::string settings(int width, int height, const std::string& image) {
  return "set terminal pngcairo size " + std::to_string(width) + "," + std::to_string(height) +
         " noenhanced\nset output " + quoted(image) +
         "\nset xdata time\nset timefmt '%s'\nset grid\n"
         "set key outside right top\nset lmargin at screen 0.1\nset rmargin at screen 0.8\n";
}

// gnuplot's data blocks: $dC holds column C's points, thinned to at most
// kMaxPoints.
std::string dataBlocks(const Points& points, size_t maxPoints) {
  std::string script;
  char line[64];
  for (size_t c = 0; c < points.size(); ++c) {
    if (points[c].empty()) continue;
    const size_t stride = (points[c].size() + maxPoints - 1) / maxPoints;
    script += "$d" + std::to_string(c) + " << EOD\n";
    for (size_t i = 0; i < points[c].size(); i += stride) {
      snprintf(line, sizeof line, "%.3f %.7g\n", points[c][i].first, points[c][i].second);
      script += line;
    }
    script += "EOD\n";
  }
  return script;
}

// The span of all values, from column first's first one on.
std::pair<double, double> span(const Points& points, size_t first) {
  double from = points[first].front().first, to = from;
  for (const auto& p : points)
    if (!p.empty()) from = std::min(from, p.front().first), to = std::max(to, p.back().first);
  return {from, to};
}

// One time axis for all panels, over the values' span.
std::string timeRange(double from, double to) {
  char line[64];
  snprintf(line, sizeof line, "set xrange ['%.3f':'%.3f']\n", from, to > from ? to : from + 1);
  return line;
}

// The UTC date of t, YYYY-MM-DD.
std::string dateOf(double t) {
  const time_t seconds = static_cast<time_t>(floor(t));
  struct tm tm;
  char text[32];
  if (gmtime_r(&seconds, &tm) == nullptr || strftime(text, sizeof text, "%Y-%m-%d", &tm) == 0)
    throw std::runtime_error("plot: the time " + std::to_string(t) + " has no date");
  return text;
}

// The panels, one per unit, each with its columns' curves, under one title.
std::string panelPlots(const std::vector<std::string>& units, Curves& curves, const std::vector<Column>& columns,
                       const heron::PlotHeading& heading) {
  std::string script = "set format x " + doubleQuoted(heading.timeFormat) + "\nset multiplot layout " +
                       std::to_string(units.size()) + ",1 title " + quoted(heading.title) + "\n";
  for (size_t p = 0; p < units.size(); ++p) {
    script += "set ylabel " + quoted(units[p].empty() ? "(no unit)" : units[p]) + "\n";
    script += p + 1 == units.size() ? "set xlabel 'time (UTC)'\n" : "unset xlabel\n";
    std::string plot = "plot ";
    for (size_t c : curves[units[p]])
      plot += (plot.size() > 5 ? ", " : "") + std::string("$d") + std::to_string(c) +
              " using 1:2 with lines title " + quoted(columns[c].name);
    script += plot + "\n";
  }
  return script + "unset multiplot\n";
}

// Starts gnuplot with its standard input from in and its standard error
// into err; returns its process id.
pid_t startGnuplot(const int in[2], FILE* err) {
  const pid_t pid = fork();
  if (pid < 0) throw oru::IOException("gnuplot", "fork", errno);
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(fileno(err), 2);
    close(in[0]);
    close(in[1]);
    execlp("gnuplot", "gnuplot", static_cast<char*>(nullptr));
    fprintf(stderr, "cannot run gnuplot: %s\n", strerror(errno));
    _exit(127);
  }
  return pid;
}

// Hands gnuplot its script and waits for it to end; returns its status.
int feedGnuplot(pid_t pid, const int in[2], const std::string& script) {
  close(in[0]);
  struct sigaction ignore = {}, old;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &old);  // gnuplot may end before it has read everything
  writeAll(in[1], script);
  close(in[1]);
  sigaction(SIGPIPE, &old, nullptr);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) throw oru::IOException("gnuplot", "waitpid", errno);
  return status;
}

// Everything in err, which it closes.
std::string drain(FILE* err) {
  std::string message;
  rewind(err);
  for (int ch; (ch = getc(err)) != EOF;) message += static_cast<char>(ch);
  fclose(err);
  return message;
}

// Runs gnuplot on script, drawing into path.
void runGnuplot(const std::string& script, const std::string& path) {
  FILE* err = tmpfile();
  int in[2];
  if (err == nullptr || pipe(in) != 0) throw oru::IOException("gnuplot", "pipe", errno);
  const int status = feedGnuplot(startGnuplot(in, err), in, script);
  const std::string message = drain(err);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("gnuplot failed on " + path + (message.empty() ? "" : ": " + message));
  if (!message.empty()) fprintf(stderr, "cal_dump: gnuplot: %s", message.c_str());
}

}  // namespace

heron::PlotHeading heron::plotHeading(const std::string& site, double from, double to) {
  const std::string first = dateOf(from), last = dateOf(to);
  if (first == last) return {site + ", " + first, "%H:%M:%S"};
  return {site + ", " + first + " - " + last, "%d %b\n%H:%M:%S"};
}

PlotSink::PlotSink(const std::string& path, int width, int height, const std::vector<Column>& columns,
                   const std::vector<size_t>& drawn, const std::string& site)
    : path_(path),
      site_(site),
      width_(width),
      height_(height),
      columns_(columns),
      drawn_(columns.size()),
      points_(columns.size()) {
  for (size_t c : drawn) drawn_[c] = true;
}

void PlotSink::row(const Record& r) {
  for (size_t k = 0; k < r.npresent; ++k) {
    const size_t c = r.present[k];
    if (drawn_[c] && isGood(r.values[c])) points_[c].emplace_back(r.t, r.values[c]);
  }
}

void PlotSink::finish() {
  // The panels: one per unit, in the order the columns first give them.
  std::vector<std::string> units;
  Curves curves;
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (points_[c].empty()) continue;
    if (curves.count(columns_[c].units) == 0) units.push_back(columns_[c].units);
    curves[columns_[c].units].push_back(c);
  }
  if (units.empty()) throw std::runtime_error(path_ + ": no values to plot");

  OutputFile image(path_);
  const int height = height_ > 0 ? height_ : 250 * static_cast<int>(units.size()) + 30;
  const std::pair<double, double> times = span(points_, curves[units[0]][0]);
  runGnuplot(settings(width_, height, image.tempPath()) + dataBlocks(points_, kMaxPoints) +
                 timeRange(times.first, times.second) +
                 panelPlots(units, curves, columns_, heron::plotHeading(site_, times.first, times.second)),
             path_);
  image.commit();
}
