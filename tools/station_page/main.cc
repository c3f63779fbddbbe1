// station_page: a web page of this computer's stations, their state and
// the last hour of their data, for a browser on the station or through a
// tunnel from afar.
//
//   station_page [-p PORT] [-a ADDRESS] [-r SECONDS] [-t SECONDS]
//                [-c INGEST_CONF] [--cal-dump PROGRAM]
//
// It listens on 127.0.0.1 unless another address is given, and serves until
// SIGINT or SIGTERM.  See station_page.1.
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <stdexcept>

#include <string>
#include <vector>

#include "PageServer.h"
#include "base/logit.h"
#include "status/StationAsk.h"

namespace {

const char kUsage[] =
    "Usage: station_page [-p PORT] [-a ADDRESS] [-r SECONDS] [-t SECONDS] [-c INGEST_CONF]\n"
    "                    [--cal-dump PROGRAM]\n"
    "Serves a page of the stations that ingest.conf gives this computer: their\n"
    "state, channels and rates, and the last hour of their variables.\n"
    "  -p PORT        the port (default 8080; 0: any free one, logged)\n"
    "  -a ADDRESS     the IPv4 address to listen on (default 127.0.0.1); the page\n"
    "                 has no authentication, so any other is a choice to make\n"
    "  -r SECONDS     how often the page is refreshed and the stations asked\n"
    "                 (default 5)\n"
    "  -t SECONDS     an idle or half-sent connection is cut after this (default 10)\n"
    "  -c FILE        the station table (default $HERON/projects/$PROJECT/$OPS/ingest.conf)\n"
    "  --cal-dump PROGRAM  the program that draws the plots (default cal_dump, on PATH)\n"
    "  -h, --help     this text\n"
    "  --version      the version\n";

const double kPlotPeriod = 60;

struct Options {
  unsigned short port = 8080;
  std::string address = "127.0.0.1";
  double refresh = 5;
  unsigned timeout = 10;
  const char* table = "$HERON/projects/$PROJECT/$OPS/ingest.conf";
  std::string calDump = "cal_dump";
};

// A number in [low, high], the whole text; exits with the usage otherwise.
double number(const char* text, double low, double high) {
  char* end = nullptr;
  errno = 0;
  const double v = strtod(text, &end);
  if (errno != 0 || end == text || *end != '\0' || !(v >= low && v <= high)) fputs(kUsage, stderr), exit(1);
  return v;
}

Options parse(int argc, char** argv) {
  static const struct option kLong[] = {{"help", no_argument, nullptr, 'h'},
                                        {"version", no_argument, nullptr, 'V'},
                                        {"cal-dump", required_argument, nullptr, 'C'},
                                        {nullptr, 0, nullptr, 0}};
  Options o;
  for (int c; (c = getopt_long(argc, argv, "hp:a:r:t:c:", kLong, nullptr)) != -1;) {
    if (c == 'h') fputs(kUsage, stdout), exit(0);
    if (c == 'V') printf("station_page (%s) %s\n", HERON_PACKAGE, HERON_VERSION), exit(0);
    if (c == 'p') o.port = static_cast<unsigned short>(number(optarg, 0, 65535));
    else if (c == 'a') o.address = optarg;
    else if (c == 'r') o.refresh = number(optarg, 0.5, 3600);
    else if (c == 't') o.timeout = static_cast<unsigned>(number(optarg, 1, 3600));
    else if (c == 'c') o.table = optarg;
    else if (c == 'C') o.calDump = optarg;
    else fputs(kUsage, stderr), exit(1);
  }
  if (optind != argc) fputs(kUsage, stderr), exit(1);
  return o;
}

// A folder of this run's own for the plots, removed with what is in it.
class ScratchDir {
 public:
  ScratchDir() {
    const char* tmp = getenv("TMPDIR");
    std::string name = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/station_page-XXXXXX";
    if (mkdtemp(&name[0]) == nullptr) throw std::runtime_error(name + ": " + strerror(errno));
    path_ = name;
  }
  ~ScratchDir() {
    DIR* dir = opendir(path_.c_str());
    for (struct dirent* e; dir != nullptr && (e = readdir(dir)) != nullptr;)
      if (e->d_name[0] != '.' && unlink((path_ + "/" + e->d_name).c_str()) != 0)
        logit(LOG_WARNING, "%s/%s: %m", path_.c_str(), e->d_name);
    if (dir != nullptr) closedir(dir);
    if (rmdir(path_.c_str()) != 0) logit(LOG_WARNING, "%s: %m", path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Serves until SIGINT or SIGTERM; the signals are blocked before any
// thread starts, so that only this wait takes them.
int serve(const Options& o, sigset_t* ending) {
  const std::vector<heron::StationEntry> stations = heron::ourStations(o.table);
  std::vector<std::string> names;
  for (const auto& s : stations) names.push_back(s.name);
  const auto variables = heron::plotVariables(names, "$HERON/projects/$PROJECT/$OPS/station_page.conf",
                                              "$HERON/projects/$PROJECT/$OPS/prep.config");
  ScratchDir scratch;
  heron::StatusCache status([&] { return heron::askStations(stations, "localhost"); }, o.refresh);
  heron::PlotCache plots(o.calDump, scratch.path(), variables, kPlotPeriod);
  heron::PageServer server(heron::pageHtml(o.refresh), status, plots);
  heron::PageLimits limits;
  limits.timeout = o.timeout;
  server.start(o.address, o.port, limits);
  struct in_addr a;
  if (inet_pton(AF_INET, o.address.c_str(), &a) == 1 && (ntohl(a.s_addr) >> 24) != 127)
    logit(LOG_WARNING, "%s is not this computer's loopback: the page has no authentication, anyone who reaches "
          "the address can read it", o.address.c_str());
  logit(LOG_NOTICE, "listening on %s:%u, %zu stations, %zu with plots", o.address.c_str(), server.port(),
        stations.size(), variables.size());
  int sig = 0;
  if (sigwait(ending, &sig) != 0) throw std::runtime_error("sigwait failed");
  logit(LOG_NOTICE, "%s: ending", signame(sig));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &ending, nullptr) != 0 || signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    perror("station_page: signals");
    return 1;
  }
  try {
    return serve(o, &ending);
  } catch (const std::exception& e) {
    logit(LOG_ERR, "station_page: %s", e.what());
    return 1;
  }
}
