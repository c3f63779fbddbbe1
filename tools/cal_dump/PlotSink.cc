#include "PlotSink.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
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

bool writeAll(int fd, const std::string& s) {
  for (size_t done = 0; done < s.size();) {
    const ssize_t n = write(fd, s.data() + done, s.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

PlotSink::PlotSink(const std::string& path, int width, int height, const std::vector<Column>& columns,
                   const std::vector<size_t>& drawn)
    : path_(path), width_(width), height_(height), columns_(columns), drawn_(columns.size()), points_(columns.size()) {
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
  std::map<std::string, std::vector<size_t>> curves;
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (points_[c].empty()) continue;
    if (curves.count(columns_[c].units) == 0) units.push_back(columns_[c].units);
    curves[columns_[c].units].push_back(c);
  }
  if (units.empty()) throw std::runtime_error(path_ + ": no values to plot");

  OutputFile image(path_);
  const int height = height_ > 0 ? height_ : 250 * static_cast<int>(units.size()) + 30;
  std::string script = "set terminal pngcairo size " + std::to_string(width_) + "," + std::to_string(height) +
                       " noenhanced\nset output " + quoted(image.tempPath()) +
                       "\nset xdata time\nset timefmt '%s'\nset format x '%H:%M:%S'\nset grid\n"
                       "set key outside right top\nset lmargin at screen 0.1\nset rmargin at screen 0.8\n";
  char line[64];
  for (size_t c = 0; c < columns_.size(); ++c) {
    if (points_[c].empty()) continue;
    const size_t stride = (points_[c].size() + kMaxPoints - 1) / kMaxPoints;
    script += "$d" + std::to_string(c) + " << EOD\n";
    for (size_t i = 0; i < points_[c].size(); i += stride) {
      snprintf(line, sizeof line, "%.3f %.7g\n", points_[c][i].first, points_[c][i].second);
      script += line;
    }
    script += "EOD\n";
  }
  // One time axis for all panels: the span of all values.
  double first = points_[curves[units[0]][0]].front().first, last = first;
  for (const auto& p : points_)
    if (!p.empty()) first = std::min(first, p.front().first), last = std::max(last, p.back().first);
  snprintf(line, sizeof line, "set xrange ['%.3f':'%.3f']\n", first, last > first ? last : first + 1);
  script += line;
  script += "set multiplot layout " + std::to_string(units.size()) + ",1\n";
  for (size_t p = 0; p < units.size(); ++p) {
    script += "set ylabel " + quoted(units[p].empty() ? "(no unit)" : units[p]) + "\n";
    script += p + 1 == units.size() ? "set xlabel 'time (UTC)'\n" : "unset xlabel\n";
    std::string plot = "plot ";
    for (size_t c : curves[units[p]])
      plot += (plot.size() > 5 ? ", " : "") + std::string("$d") + std::to_string(c) +
              " using 1:2 with lines title " + quoted(columns_[c].name);
    script += plot + "\n";
  }
  script += "unset multiplot\n";

  FILE* err = tmpfile();
  int in[2];
  if (err == nullptr || pipe(in) != 0) throw oru::IOException("gnuplot", "pipe", errno);
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
  std::string message;
  rewind(err);
  for (int ch; (ch = getc(err)) != EOF;) message += static_cast<char>(ch);
  fclose(err);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("gnuplot failed on " + path_ + (message.empty() ? "" : ": " + message));
  if (!message.empty()) fprintf(stderr, "cal_dump: gnuplot: %s", message.c_str());
  image.commit();
}
