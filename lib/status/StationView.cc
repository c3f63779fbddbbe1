#include "status/StationView.h"

#include <arpa/inet.h>
#include <stdarg.h>

#include <algorithm>
#include <cmath>

std::string isoTime(double t) {
  const time_t s = static_cast<time_t>(std::floor(t));
  struct tm tm;
  char text[32];
  if (gmtime_r(&s, &tm) == nullptr || strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm) == 0) return "?";
  return text;
}

int viewStatus(const std::vector<StationView>& views) {
  int status = 0;
  for (const auto& v : views) status = std::max(status, v.state == "up" ? 0 : v.answered() ? 1 : 2);
  return status;
}

void printJson(FILE* out, const std::vector<StationView>& views, time_t now) {
  fputs(heron::statusJson(views, now).c_str(), out);
}

namespace {

// Appends printf's text to s.
void add(std::string& s, const char* format, ...) __attribute__((format(printf, 2, 3)));
void add(std::string& s, const char* format, ...) {
  char text[512];
  va_list ap;
  va_start(ap, format);
  const int n = vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  if (n < 0) return;
  if (static_cast<size_t>(n) < sizeof text) {
    s.append(text, static_cast<size_t>(n));
    return;
  }
  std::string longer(static_cast<size_t>(n) + 1, '\0');
  va_start(ap, format);
  vsnprintf(&longer[0], longer.size(), format, ap);
  va_end(ap);
  s.append(longer, 0, static_cast<size_t>(n));
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

void jsonChannels(std::string& out, const StationView& v) {
  out += ",\n     \"channels\": [";
  for (size_t i = 0; i < v.channels.size(); ++i) {
    const channel_status& c = v.channels[i];
    add(out, "%s\n      {\"channel\": %d, \"samples\": %lu, \"rate_10s\": %.2f, \"last_sample_age\": %.3f}",
        i ? "," : "", c.chan, c.samples, static_cast<double>(c.rate), static_cast<double>(c.lastSampleAge));
  }
  out += "]";
}

void jsonConnections(std::string& out, const StationView& v) {
  out += ",\n     \"connections\": [";
  for (size_t i = 0; i < v.connections.size(); ++i) {
    const ingest_connection& c = v.connections[i];
    struct in_addr a;
    a.s_addr = htonl(static_cast<uint32_t>(c.h_add));
    char addr[INET_ADDRSTRLEN];
    add(out,
        "%s\n      {\"address\": \"%s\", \"port\": %u, \"type\": \"%s\", \"samples\": %lu, \"writes\": %lu, "
        "\"lost\": %lu}",
        i ? "," : "", inet_ntop(AF_INET, &a, addr, sizeof addr) ? addr : "?", c.port,
        c.sock_is_dgram ? "dgram" : "stream", c.nsamples, c.nwrites, c.nlost);
  }
  out += "]";
}

void jsonStation(std::string& out, const StationView& v, time_t now) {
  add(out, "    {\"station\": %s, \"port\": %s, \"state\": %s", quoted(v.station).c_str(), quoted(v.port).c_str(),
      quoted(v.state).c_str());
  if (!v.answered()) {
    add(out, ", \"reason\": %s}", quoted(v.reason).c_str());
    return;
  }
  if (v.age < 0)
    out += ",\n     \"last_sample\": null, \"last_sample_age\": null";
  else
    add(out, ",\n     \"last_sample\": \"%s\", \"last_sample_age\": %.3f",
        isoTime(static_cast<double>(now) - v.age).c_str(), v.age);
  add(out,
      ",\n     \"rate_10s\": %.2f, \"samples\": %llu, \"bad\": %lu, \"lost\": %lu, \"up_seconds\": %lu,"
      "\n     \"archive_file\": %s, \"archive_bytes\": %llu, \"archive_errors\": %lu, \"clients\": %lu",
      v.rate, v.samples, v.bad, v.lost, v.upTime, quoted(v.archiveFile).c_str(), v.archiveBytes, v.archiveErrors,
      v.clients);
  jsonChannels(out, v);
  if (!v.connections.empty()) jsonConnections(out, v);
  out += "}";
}

}  // namespace

std::string heron::statusJson(const std::vector<StationView>& views, time_t now) {
  std::string out;
  add(out, "{\"time\": \"%s\", \"status\": %d, \"stations\": [\n", isoTime(static_cast<double>(now)).c_str(),
      viewStatus(views));
  for (size_t i = 0; i < views.size(); ++i) {
    jsonStation(out, views[i], now);
    out += i + 1 < views.size() ? ",\n" : "\n";
  }
  out += "]}\n";
  return out;
}
