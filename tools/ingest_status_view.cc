#include "ingest_status_view.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cmath>

namespace {

std::string age(double a) {
  if (a < 0) return "-";
  char text[32];
  snprintf(text, sizeof text, "%.1fs", a);
  return text;
}

std::string base(const std::string& path) {
  if (path.empty()) return "-";
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

void printTable(FILE* out, const std::vector<StationView>& views, bool highlight) {
  fprintf(out, "%-10s %-14s %-15s %7s %8s %10s %6s %6s %-24s %10s %6s %7s\n", "station", "port", "state", "age",
          "rate10s", "samples", "bad", "lost", "archive", "bytes", "errors", "clients");
  for (const auto& v : views) {
    const bool mark = highlight && v.state != "up";
    if (mark) fputs("\033[7m", out);
    if (v.answered())
      fprintf(out, "%-10s %-14s %-15s %7s %8.1f %10llu %6lu %6lu %-24s %10llu %6lu %7lu", v.station.c_str(),
              v.port.c_str(), v.state.c_str(), age(v.age).c_str(), v.rate, v.samples, v.bad, v.lost,
              base(v.archiveFile).c_str(), v.archiveBytes, v.archiveErrors, v.clients);
    else
      fprintf(out, "%-10s %-14s %s", v.station.c_str(), v.port.c_str(), v.state.c_str());
    fputs(mark ? "\033[0m\n" : "\n", out);
  }
}

void printChannels(FILE* out, const StationView& v) {
  fprintf(out, "%7s %10s %8s %7s\n", "channel", "samples", "rate10s", "age");
  for (const auto& c : v.channels)
    fprintf(out, "%7d %10lu %8.1f %7s\n", c.chan, c.samples, static_cast<double>(c.rate),
            age(static_cast<double>(c.lastSampleAge)).c_str());
}
