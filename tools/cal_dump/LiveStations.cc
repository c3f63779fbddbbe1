#include "LiveStations.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>

#include "base/Exception.h"
#include "base/clock.h"
#include "rpc/ingest_rpc.h"
#include "rpc/rpc_client.h"
#include "samples/RawDataInputs.h"
#include "samples/StreamInputs.h"

namespace heron {

LiveStations::LiveStations(RawDataInputs& inputs, const std::string& server, const ChanBits& channels,
                           const std::vector<Station>& stations)
    : inputs_(inputs), server_(server), channels_(channels) {
  for (const Station& s : stations) links_.push_back(Link{s});
}

std::string LiveStations::label(const Link& link) const { return link.station.name + "@" + server_; }

void LiveStations::start() {
  const double now = monotonicSeconds();
  for (Link& link : links_) {
    link.downSince = now;
    connect(link, true);
  }
  nextTry_ = nextLook_ = now + 1;
}

// Asks the port mapper whether the station's server is there and answers
// (a killed server leaves its registration behind: the connection is then
// refused), and only then connects, so that the input's own handling of a
// failed connection, which ends the process, is not met but in a race
// with a server that dies in between.
bool LiveStations::connect(Link& link, bool atStart) {
  const struct timeval bound = {1, 0};
  CLIENT* probe = heron_clnt_create(server_.c_str(), static_cast<rpcprog_t>(INGEST_PROG + link.station.number), 1,
                                    &bound);
  if (probe == nullptr) {
    const enum clnt_stat why = rpc_createerr.cf_stat;
    if (atStart && why == RPC_UNKNOWNHOST)
      throw oru::IOException(label(link).c_str(), "connect", "the server's host is unknown");
    if (!link.announced)
      fprintf(stderr, "cal_dump: %s: waiting for its ingest server (%s); trying every second\n", label(link).c_str(),
              clnt_sperrno(why));
    link.announced = true;
    return false;
  }
  clnt_destroy(probe);
  std::unique_ptr<RawDataInput> in(
      new IngestRawDataInput(link.station.name.c_str(), link.station.number, server_.c_str(), channels_, SOCK_STREAM));
  in->setNonBlocking(1);
  RawDataInput* const added = in.get();
  try {
    inputs_.addInput(std::move(in));
  } catch (const oru::IOException& e) {  // the merger has dropped it
    if (!link.announced) fprintf(stderr, "cal_dump: %s: %s\n", label(link).c_str(), e.toString().c_str());
    link.announced = true;
    return false;
  }
  if (indexOf(added) < 0) return false;  // ended at once
  link.input = added;
  if (link.lost) {
    ++reconnections_;
    fprintf(stderr, "cal_dump: %s: connected again after a gap of %.1f s\n", label(link).c_str(),
            monotonicSeconds() - link.downSince);
  } else if (link.announced) {
    fprintf(stderr, "cal_dump: %s: connected\n", label(link).c_str());
  }
  link.announced = false;
  return true;
}

void LiveStations::ended(Link& link, const std::string& why) {
  fprintf(stderr, "cal_dump: %s: the connection ended (%s); reconnecting when the server answers\n",
          label(link).c_str(), why.c_str());
  const int i = indexOf(link.input);
  if (i >= 0) inputs_.removeInput(i);
  link.input = nullptr;
  link.lost = true;
  link.announced = true;
  link.downSince = monotonicSeconds();
}

int LiveStations::indexOf(const RawDataInput* in) const {
  for (int i = 0; i < inputs_.size(); ++i)
    if (inputs_.input(i) == in) return i;
  return -1;
}

// The merger drops an input whose read failed or ended.
void LiveStations::noteDropped(const std::string& why) {
  for (Link& link : links_)
    if (link.input != nullptr && indexOf(link.input) < 0) {
      link.input = nullptr;  // already deleted
      ended(link, why.empty() ? "the input ended" : why);
    }
}

// A non-blocking input reads the end of its connection as "no data now", so
// the end is seen here: a hang-up with nothing left to read.
void LiveStations::noteHangups(int timeoutMs) {
  std::vector<struct pollfd> fds;
  std::vector<Link*> polled;
  for (Link& link : links_)
    if (link.input != nullptr) {
      fds.push_back({link.input->getFD(), POLLIN | POLLRDHUP, 0});
      polled.push_back(&link);
    }
  const int r = poll(fds.data(), fds.size(), timeoutMs);
  if (r < 0 && errno != EINTR) throw oru::IOException("the live connections", "poll", errno);
  for (size_t k = 0; r > 0 && k < fds.size(); ++k) {
    if ((fds[k].revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0) continue;
    char c;
    const ssize_t n = recv(fds[k].fd, &c, 1, MSG_PEEK | MSG_DONTWAIT);
    if (n == 0) ended(*polled[k], "the server closed it");
    else if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) ended(*polled[k], strerror(errno));
  }
}

void LiveStations::service(int timeoutMs, const std::string& why) {
  noteDropped(why);
  for (const Link& link : links_)  // a station that is down is not kept waiting for its next try
    if (link.input == nullptr)
      timeoutMs = std::max(0, std::min(timeoutMs, static_cast<int>((nextTry_ - monotonicSeconds()) * 1000) + 1));
  noteHangups(timeoutMs);
  const double now = monotonicSeconds();
  nextLook_ = now + 1;
  if (now < nextTry_) return;
  nextTry_ = now + 1;
  for (Link& link : links_)
    if (link.input == nullptr) connect(link, false);
}

void LiveStations::tick() {
  if (monotonicSeconds() >= nextLook_) service(0);
}

}  // namespace heron
