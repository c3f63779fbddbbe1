#include "ingest_status_view.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cmath>

std::string isoTime(double t) {
  const time_t s = static_cast<time_t>(std::floor(t));
  struct tm tm;
  char text[32];
  if (gmtime_r(&s, &tm) == nullptr || strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm) == 0) return "?";
  return text;
}

namespace {

std::string age(double a) {
  if (a < 0) return "-";
  char text[32];
  snprintf(text, sizeof text, "%.1fs", a);
  return text;
}

std::string quoted(const std::string& s) {
  std::string q = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      q += '\\';
      q += static_cast<char>(c);
    } else if (c < 0x20) {
      char esc[8];
      snprintf(esc, sizeof esc, "\\u%04x", c);
      q += esc;
    } else {
      q += static_cast<char>(c);
    }
  }
  return q + "\"";
}

std::string base(const std::string& path) {
  if (path.empty()) return "-";
  return path.substr(path.rfind('/') + 1);
}

bool answered(const StationView& v) { return v.state != "down" && v.state != "unregistered"; }

void jsonChannels(FILE* out, const StationView& v) {
  fputs(",\n     \"channels\": [", out);
  for (size_t i = 0; i < v.channels.size(); ++i) {
    const channel_status& c = v.channels[i];
    fprintf(out, "%s\n      {\"channel\": %d, \"samples\": %lu, \"rate_10s\": %.2f, \"last_sample_age\": %.3f}",
            i ? "," : "", c.chan, c.samples, static_cast<double>(c.rate), static_cast<double>(c.lastSampleAge));
  }
  fputs("]", out);
}

void jsonConnections(FILE* out, const StationView& v) {
  fputs(",\n     \"connections\": [", out);
  for (size_t i = 0; i < v.connections.size(); ++i) {
    const ingest_connection& c = v.connections[i];
    struct in_addr a;
    a.s_addr = htonl(static_cast<uint32_t>(c.h_add));
    char addr[INET_ADDRSTRLEN];
    fprintf(out,
            "%s\n      {\"address\": \"%s\", \"port\": %u, \"type\": \"%s\", \"samples\": %lu, \"writes\": %lu, "
            "\"lost\": %lu}",
            i ? "," : "", inet_ntop(AF_INET, &a, addr, sizeof addr) ? addr : "?", c.port,
            c.sock_is_dgram ? "dgram" : "stream", c.nsamples, c.nwrites, c.nlost);
  }
  fputs("]", out);
}

void jsonStation(FILE* out, const StationView& v, time_t now) {
  fprintf(out, "    {\"station\": %s, \"port\": %s, \"state\": %s", quoted(v.station).c_str(), quoted(v.port).c_str(),
          quoted(v.state).c_str());
  if (!answered(v)) {
    fprintf(out, ", \"reason\": %s}", quoted(v.reason).c_str());
    return;
  }
  if (v.age < 0)
    fputs(",\n     \"last_sample\": null, \"last_sample_age\": null", out);
  else
    fprintf(out, ",\n     \"last_sample\": \"%s\", \"last_sample_age\": %.3f", isoTime(static_cast<double>(now) - v.age).c_str(),
            v.age);
  fprintf(out,
          ",\n     \"rate_10s\": %.2f, \"samples\": %llu, \"bad\": %lu, \"lost\": %lu, \"up_seconds\": %lu,"
          "\n     \"archive_file\": %s, \"archive_bytes\": %llu, \"archive_errors\": %lu, \"clients\": %lu",
          v.rate, v.samples, v.bad, v.lost, v.upTime, quoted(v.archiveFile).c_str(), v.archiveBytes, v.archiveErrors,
          v.clients);
  jsonChannels(out, v);
  if (!v.connections.empty()) jsonConnections(out, v);
  fputs("}", out);
}

}  // namespace

int viewStatus(const std::vector<StationView>& views) {
  int status = 0;
  for (const auto& v : views) status = std::max(status, v.state == "up" ? 0 : answered(v) ? 1 : 2);
  return status;
}

void printTable(FILE* out, const std::vector<StationView>& views, bool highlight) {
  fprintf(out, "%-10s %-14s %-15s %7s %8s %10s %6s %6s %-24s %10s %6s %7s\n", "station", "port", "state", "age",
          "rate10s", "samples", "bad", "lost", "archive", "bytes", "errors", "clients");
  for (const auto& v : views) {
    const bool mark = highlight && v.state != "up";
    if (mark) fputs("\033[7m", out);
    if (answered(v))
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

void printJson(FILE* out, const std::vector<StationView>& views, time_t now) {
  fprintf(out, "{\"time\": \"%s\", \"status\": %d, \"stations\": [\n", isoTime(static_cast<double>(now)).c_str(),
          viewStatus(views));
  for (size_t i = 0; i < views.size(); ++i) {
    jsonStation(out, views[i], now);
    fputs(i + 1 < views.size() ? ",\n" : "\n", out);
  }
  fputs("]}\n", out);
}
