// ingest_status: the state of a station's ingest server, through its status
// procedures: the input (port, state, rate, bad samples, time up, last
// sample, quiet spells, archive file and failures) and one line per
// live connection with its counters.
//
//   ingest_status <station> [host]
//
// The host defaults to the station's ingest server (ingest.conf, else
// $INGEST_SERVER; a station that ingest.conf gives to every host, "-", is
// asked for on $INGEST_SERVER, else on this host).  A server that cannot be
// reached is reported with the RPC library's reason and "<station>@<host>:
// can't connect to ingestor"; the exit status is then 1.  See
// ingest_status.1.
#include <arpa/inet.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "base/Exception.h"
#include "site/TernList.h"
#include "rpc/ingest_client.h"
#include "rpc/ingest_rpc_client.h"
#include "site/IngestConfig.h"

namespace {

const char kUsage[] =
    "Usage: ingest_status STATION [HOST]\n"
    "Prints the input status and the live connections of STATION's ingest\n"
    "server on HOST (default: the station's server in ingest.conf, else\n"
    "$INGEST_SERVER; for a station of every host, $INGEST_SERVER or this one).\n"
    "  -h, --help     this text\n"
    "  --version      the version\n";

const struct timeval kTimeout = {INGEST_CALL_TIMEOUT_SECS, 0};

// The library's xdr_void, with the argument list a cast to xdrproc_t wants.
bool_t noArguments(XDR*, void*) { return TRUE; }

bool call(CLIENT* clnt, rpcproc_t proc, xdrproc_t in, void* arg, xdrproc_t out, void* res) {
  if (clnt_call(clnt, proc, in, static_cast<caddr_t>(arg), out, static_cast<caddr_t>(res), kTimeout) == RPC_SUCCESS)
    return true;
  clnt_perror(clnt, proc == INGEST_INPUT_STATUS ? "INGEST_INPUT_STATUS failed" : "INGEST_CONNECTIONS failed");
  return false;
}

void printInput(const input_status& s) {
  printf("station %s  port %s  %s  %s  %.1f samples/s  %d bad  %lu untrusted tags  up %lu s\n", s.station, s.port,
         s.open ? "open" : "closed", s.state, static_cast<double>(s.sampleRate), s.badSerialSamples, s.tossedTags,
         s.upTime);
  if (s.lastSampleAge < 0)
    printf("last sample  none yet  quiet spells %lu\n", s.quietSpells);
  else
    printf("last sample  %.1f s ago  quiet spells %lu\n", static_cast<double>(s.lastSampleAge), s.quietSpells);
  printf("archive %s  %lu errors  %lu samples lost\n", s.archiveFile[0] ? s.archiveFile : "(none open)",
         s.archiveErrors, s.samplesLost);
  if (s.archiveError[0]) printf("archive failing: %s\n", s.archiveError);
}

void printConnections(const ingest_connection* c) {
  printf("%-15s %5s %-6s %10s %10s %10s %7s %7s %7s %7s\n", "client", "port", "type", "nsamples", "nwrites",
         "nlost", "blocked", "partial", "errors", "unreach");
  for (; c != nullptr; c = c->next) {
    struct in_addr a;
    a.s_addr = htonl(static_cast<uint32_t>(c->h_add));
    printf("%-15s %5u %-6s %10lu %10lu %10lu %7d %7d %7d %7d\n", inet_ntoa(a), c->port,
           c->sock_is_dgram ? "dgram" : "stream", c->nsamples, c->nwrites, c->nlost, c->blockedWrites,
           c->partialWrites, c->writeerr, c->unreachable);
  }
}

}  // namespace

int main(int argc, char** argv) {
  static const struct option kLong[] = {
      {"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}};
  for (int c; (c = getopt_long(argc, argv, "h", kLong, nullptr)) != -1;) {
    if (c == 'h') {
      fputs(kUsage, stdout);
      return 0;
    }
    if (c == 'V') {
      printf("ingest_status (%s) %s\n", HERON_PACKAGE, HERON_VERSION);
      return 0;
    }
    fputs(kUsage, stderr);
    return 2;
  }
  if (argc - optind < 1 || argc - optind > 2) {
    fputs(kUsage, stderr);
    return 2;
  }
  const char* station = argv[optind];
  try {
    std::string host = argc - optind == 2 ? argv[optind + 1] : ingestServer(station);
    if (host == "-") {  // a station served on every host: ask this one's
      const char* env = getenv("INGEST_SERVER");
      host = env != nullptr && *env != '\0' ? env : "localhost";
    }
    const int number = TernList::TernInfo(station).number;
    RpcClient clnt = ingest_rpc_client(host.c_str(), number, nullptr);
    input_status_res in = {};
    ingest_connection_res conns = {};
    if (!clnt || !call(clnt.get(), INGEST_INPUT_STATUS, reinterpret_cast<xdrproc_t>(xdr_wrapstring), &station,
                       reinterpret_cast<xdrproc_t>(xdr_input_status_res), &in)) {
      ingest_perror(station, host.c_str(), INGEST_ERR_CONNECT);
      return 1;
    }
    int status = 0;
    if (in.ierr != 0 || in.input_status_res_u.status == nullptr) {
      fprintf(stderr, "%s@%s: the server does not serve this station\n", station, host.c_str());
      status = 1;
    } else {
      printInput(*in.input_status_res_u.status);
    }
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_input_status_res), reinterpret_cast<char*>(&in));
    if (!call(clnt.get(), INGEST_CONNECTIONS, reinterpret_cast<xdrproc_t>(noArguments), nullptr,
              reinterpret_cast<xdrproc_t>(xdr_ingest_connection_res), &conns))
      return 1;
    if (conns.ierr == 0) printConnections(conns.ingest_connection_res_u.list);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_ingest_connection_res), reinterpret_cast<char*>(&conns));
    return status;
  } catch (const std::exception& e) {
    fprintf(stderr, "ingest_status: %s\n", e.what());
    return 1;
  }
}
