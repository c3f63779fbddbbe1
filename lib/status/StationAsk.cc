#include "status/StationAsk.h"

#include <errno.h>
#include <sys/utsname.h>

#include "base/Exception.h"
#include "rpc/ingest_client.h"
#include "rpc/rpc_client.h"
#include "site/IngestConfig.h"
#include "site/TernList.h"

namespace {

const struct timeval kTimeout = {INGEST_CALL_TIMEOUT_SECS, 0};

// The library's xdr_void, with the argument list a cast to xdrproc_t wants.
bool_t noArguments(XDR*, void*) { return TRUE; }

bool call(CLIENT* clnt, rpcproc_t proc, xdrproc_t in, void* arg, xdrproc_t out, void* res) {
  return clnt_call(clnt, proc, in, static_cast<caddr_t>(arg), out, static_cast<caddr_t>(res), kTimeout) ==
         RPC_SUCCESS;
}

void copyStatus(StationView& v, const station_status& s) {
  v.station = s.station;
  v.port = s.port;
  v.state = s.state;
  v.age = static_cast<double>(s.lastSampleAge);
  v.rate = static_cast<double>(s.rate);
  v.upTime = s.upTime;
  v.samples = s.samples;
  v.bad = s.badSamples;
  v.lost = s.samplesLost;
  v.archiveFile = s.archiveFile;
  v.archiveBytes = s.archiveBytes;
  v.archiveErrors = s.archiveErrors;
  v.clients = s.clients;
  v.channels.assign(s.channels.channels_val, s.channels.channels_val + s.channels.channels_len);
}

void askConnections(CLIENT* clnt, StationView& v) {
  ingest_connection_res conns = {};
  if (!call(clnt, INGEST_CONNECTIONS, reinterpret_cast<xdrproc_t>(noArguments), nullptr,
            reinterpret_cast<xdrproc_t>(xdr_ingest_connection_res), &conns)) {
    clnt_perror(clnt, "INGEST_CONNECTIONS failed");
    return;
  }
  for (const ingest_connection* c = conns.ingest_connection_res_u.list; conns.ierr == 0 && c != nullptr; c = c->next) {
    v.connections.push_back(*c);
    v.connections.back().next = nullptr;
  }
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_ingest_connection_res), reinterpret_cast<char*>(&conns));
}

StationView unanswered(const heron::StationEntry& asked, const char* state, const std::string& reason) {
  StationView v;
  v.station = asked.name;
  v.port = asked.port;
  v.state = state;
  v.reason = reason;
  return v;
}

}  // namespace

std::vector<heron::StationEntry> heron::ourStations(const char* table) {
  struct utsname un;
  if (uname(&un) != 0) throw oru::IOException("uname", "", errno);
  const std::string name = un.nodename, shortName = name.substr(0, name.find('.'));
  std::vector<StationEntry> stations;
  IngestConfig cfg(table);
  for (const auto& e : cfg.stns)
    if (e.type == SERIALPORT && (e.ingestServer == "-" || e.ingestServer == name || e.ingestServer == shortName))
      stations.push_back({e.stationName, e.portName});
  return stations;
}

StationView heron::askStation(const StationEntry& asked, const std::string& host, bool detail) {
  const std::string& station = asked.name;
  const int number = TernList::TernInfo(station.c_str()).number;
  const std::string who = station + "@" + host;
  RpcClient clnt(heron_clnt_create(host.c_str(), static_cast<rpcprog_t>(INGEST_PROG + number), INGEST_VERS, &kTimeout));
  if (!clnt)
    return unanswered(asked, rpc_createerr.cf_stat == RPC_PROGNOTREGISTERED ? "unregistered" : "down",
                      clnt_spcreateerror(who.c_str()));
  station_status_res res = {};
  if (!call(clnt.get(), INGEST_STATION_STATUS, reinterpret_cast<xdrproc_t>(noArguments), nullptr,
            reinterpret_cast<xdrproc_t>(xdr_station_status_res), &res))
    return unanswered(asked, "down", clnt_sperror(clnt.get(), who.c_str()));
  StationView v;
  v.port = asked.port;
  if (res.ierr == 0) copyStatus(v, res.station_status_res_u.status);
  xdr_free(reinterpret_cast<xdrproc_t>(xdr_station_status_res), reinterpret_cast<char*>(&res));
  if (res.ierr != 0 || v.station != station)
    return unanswered(asked, "unregistered", who + ": the server does not serve this station");
  if (detail) askConnections(clnt.get(), v);
  return v;
}

std::vector<StationView> heron::askStations(const std::vector<StationEntry>& stations, const std::string& host) {
  std::vector<StationView> views;
  for (const auto& s : stations) {
    try {
      views.push_back(askStation(s, host, false));
    } catch (const std::exception& e) {
      views.push_back(unanswered(s, "unregistered", e.what()));
    }
  }
  return views;
}
