// ingest_status: the stations of this computer at a glance, through the
// status procedures of their ingest servers.
//
//   ingest_status [--json] [-w SECONDS] [-c INGEST_CONF]
//   ingest_status [--json] [-w SECONDS] STATION [HOST]
//
// Without a station, one line for every serial station that ingest.conf
// gives this computer (the daemon's own selection), each asked on this
// computer.  With one, the input's lines, one line per channel and the
// table of live connections; the host defaults to the station's ingest
// server (ingest.conf, else $INGEST_SERVER; a station of every host, "-",
// is asked on $INGEST_SERVER, else on this host).  The exit status is a
// monitoring check's: 0 all up, 1 some quiet or archive failing, 2 some
// down or unregistered, 3 the status could not be asked.  See
// ingest_status.1.
#include <arpa/inet.h>
#include <errno.h>
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/Exception.h"
#include "ingest_status_view.h"
#include "rpc/ingest_client.h"
#include "rpc/rpc_client.h"
#include "site/IngestConfig.h"
#include "site/TernList.h"
#include "status/StationAsk.h"

namespace {

const char kUsage[] =
    "Usage: ingest_status [--json] [-w SECONDS] [-c INGEST_CONF]\n"
    "       ingest_status [--json] [-w SECONDS] STATION [HOST]\n"
    "Without STATION, one line for every station that ingest.conf gives this\n"
    "computer; with STATION, its input, its channels and its live connections\n"
    "on HOST (default: the station's server in ingest.conf, else\n"
    "$INGEST_SERVER; for a station of every host, $INGEST_SERVER or this one).\n"
    "  --json         one JSON document instead of the tables\n"
    "  -w SECONDS     show again every SECONDS until interrupted\n"
    "  -c FILE        the station table (default $HERON/projects/$PROJECT/$OPS/ingest.conf)\n"
    "  -h, --help     this text\n"
    "  --version      the version\n"
    "Exit status: 0 all up, 1 some quiet or archive failing, 2 some down or\n"
    "unregistered, 3 the status could not be asked.\n";

const int kCannotAsk = 3;
const struct timeval kTimeout = {INGEST_CALL_TIMEOUT_SECS, 0};
volatile sig_atomic_t stopped = 0;

struct Options {
  bool json = false;
  double watch = 0;  // seconds between views; 0: once
  const char* table = "$HERON/projects/$PROJECT/$OPS/ingest.conf";
  const char* station = nullptr;
  std::string host;
};

bool call(CLIENT* clnt, rpcproc_t proc, xdrproc_t in, void* arg, xdrproc_t out, void* res) {
  return clnt_call(clnt, proc, in, static_cast<caddr_t>(arg), out, static_cast<caddr_t>(res), kTimeout) ==
         RPC_SUCCESS;
}

// The input lines of the single-station view, as INGEST_INPUT_STATUS
// gives them.
void printInput(const char* station, const std::string& host) {
  const int number = TernList::TernInfo(station).number;
  RpcClient clnt(heron_clnt_create(host.c_str(), static_cast<rpcprog_t>(INGEST_PROG + number), INGEST_VERS, &kTimeout));
  input_status_res in = {};
  if (!clnt || !call(clnt.get(), INGEST_INPUT_STATUS, reinterpret_cast<xdrproc_t>(xdr_wrapstring), &station,
                     reinterpret_cast<xdrproc_t>(xdr_input_status_res), &in))
    return;
  const input_status* s = in.input_status_res_u.status;
  if (in.ierr == 0 && s != nullptr) {
    printf("station %s  port %s  %s  %s  %.1f samples/s  %d bad  %lu untrusted tags  up %lu s\n", s->station, s->port,
           s->open ? "open" : "closed", s->state, static_cast<double>(s->sampleRate), s->badSerialSamples,
           s->tossedTags, s->upTime);
    if (s->lastSampleAge < 0)
      printf("last sample  none yet  quiet spells %lu\n", s->quietSpells);
    else
      printf("last sample  %.1f s ago  quiet spells %lu\n", static_cast<double>(s->lastSampleAge), s->quietSpells);
    printf("archive %s  %lu errors  %lu samples lost\n", s->archiveFile[0] ? s->archiveFile : "(none open)",
           s->archiveErrors, s->samplesLost);
    if (s->archiveError[0]) printf("archive failing: %s\n", s->archiveError);
  }
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_input_status_res), reinterpret_cast<char*>(&in));
}

void printConnections(const std::vector<ingest_connection>& conns) {
  printf("%-15s %5s %-6s %10s %10s %10s %7s %7s %7s %7s\n", "client", "port", "type", "nsamples", "nwrites",
         "nlost", "blocked", "partial", "errors", "unreach");
  for (const auto& c : conns) {
    struct in_addr a;
    a.s_addr = htonl(static_cast<uint32_t>(c.h_add));
    printf("%-15s %5u %-6s %10lu %10lu %10lu %7d %7d %7d %7d\n", inet_ntoa(a), c.port,
           c.sock_is_dgram ? "dgram" : "stream", c.nsamples, c.nwrites, c.nlost, c.blockedWrites, c.partialWrites,
           c.writeerr, c.unreachable);
  }
}

// One view of the station or of all; its exit status.
int show(const Options& o, const std::vector<heron::StationEntry>& stations, bool terminal) {
  std::vector<StationView> views;
  for (const auto& s : stations) views.push_back(heron::askStation(s, o.host, o.station != nullptr));
  if (terminal && o.watch > 0) fputs("\033[H\033[2J", stdout);
  if (o.json) {
    printJson(stdout, views, time(nullptr));
  } else if (o.station == nullptr) {
    printTable(stdout, views, terminal);
  } else if (views[0].state == "down" || views[0].state == "unregistered") {
    fprintf(stderr, "%s\n", views[0].reason.c_str());
    ingest_perror(o.station, o.host.c_str(), INGEST_ERR_CONNECT);
  } else {
    printInput(o.station, o.host);
    printChannels(stdout, views[0]);
    printConnections(views[0].connections);
  }
  if (fflush(stdout) != 0) throw oru::IOException("standard output", "write", errno);
  return viewStatus(views);
}

void onSignal(int) { stopped = 1; }

// Views every o.watch seconds until a signal ends the watch.
int watch(const Options& o, const std::vector<heron::StationEntry>& stations) {
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  struct sigaction sa = {};
  sa.sa_handler = onSignal;
  if (sigaction(SIGINT, &sa, nullptr) != 0 || sigaction(SIGTERM, &sa, nullptr) != 0)
    throw oru::IOException("sigaction", "", errno);
  int status = kCannotAsk;
  while (!stopped) {
    if (!terminal && !o.json) printf("-- %s\n", isoTime(static_cast<double>(time(nullptr))).c_str());
    status = show(o, stations, terminal);
    struct timespec pause = {static_cast<time_t>(o.watch), static_cast<long>(std::fmod(o.watch, 1) * 1e9)};
    while (!stopped && nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    }
  }
  return status;
}

// The options; exits for --help, --version and a wrong command line.
Options parse(int argc, char** argv) {
  static const struct option kLong[] = {{"help", no_argument, nullptr, 'h'},
                                        {"version", no_argument, nullptr, 'V'},
                                        {"json", no_argument, nullptr, 'j'},
                                        {nullptr, 0, nullptr, 0}};
  Options o;
  char* end = nullptr;
  for (int c; (c = getopt_long(argc, argv, "hw:c:", kLong, nullptr)) != -1;) {
    if (c == 'h') fputs(kUsage, stdout), exit(0);
    if (c == 'V') printf("ingest_status (%s) %s\n", HERON_PACKAGE, HERON_VERSION), exit(0);
    if (c == 'j') o.json = true;
    else if (c == 'c') o.table = optarg;
    else if (c == 'w' && (o.watch = strtod(optarg, &end)) > 0 && *end == '\0' && o.watch < 1e6) continue;
    else fputs(kUsage, stderr), exit(kCannotAsk);
  }
  if (argc - optind > 2) fputs(kUsage, stderr), exit(kCannotAsk);
  if (argc - optind >= 1) o.station = argv[optind];
  o.host = argc - optind == 2 ? argv[optind + 1] : "localhost";
  return o;
}

}  // namespace

int main(int argc, char** argv) {
  Options o = parse(argc, argv);
  try {
    std::vector<heron::StationEntry> stations;
    if (o.station != nullptr) {
      stations.push_back({o.station, ""});
      if (argc - optind < 2) o.host = ingestServer(o.station);
      if (o.host == "-") {  // a station served on every host: ask this one's
        const char* env = getenv("INGEST_SERVER");
        o.host = env != nullptr && *env != '\0' ? env : "localhost";
      }
    } else {
      stations = heron::ourStations(o.table);
    }
    return o.watch > 0 ? watch(o, stations) : show(o, stations, false);
  } catch (const std::exception& e) {
    fprintf(stderr, "ingest_status: %s\n", e.what());
    return kCannotAsk;
  }
}
