// The station page's HTTP side, on libmicrohttpd.  It serves only what the
// program generates, from a fixed table of paths:
//   /               the page (HTML with its style and script inline)
//   /status.json    the stations' status document (StatusCache)
//   /plot/S.png     station S's quick-look plot, for known stations only
// Anything else is 404, any method but GET and HEAD 405; no path of a
// request ever names a file.  Its limits bound what viewers can cost: the
// connections in all and per address, the memory of each connection
// (which bounds a request's header: a larger one is refused), and the
// seconds a connection may sit idle or half-sent before it is cut.
// One thread per connection, so a plot being drawn holds up no one else.
#ifndef HERON_TOOLS_STATION_PAGE_PAGESERVER_H
#define HERON_TOOLS_STATION_PAGE_PAGESERVER_H

#include <stddef.h>

#include <string>

#include "PlotCache.h"
#include "StatusCache.h"

struct MHD_Daemon;

namespace heron {

struct PageLimits {
  unsigned connections = 64;  // in all
  unsigned perAddress = 32;   // from one address (an SSH tunnel is one)
  size_t memory = 32 * 1024;  // per connection, its request header included
  unsigned timeout = 10;      // seconds a connection may sit idle
};

// The page, with its refresh period put in.
std::string pageHtml(double refreshSeconds);

class PageServer {
 public:
  PageServer(std::string page, StatusCache& status, PlotCache& plots);
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  // Listens on address (IPv4, dotted) and port (0: any free one) and serves
  // until destroyed; throws std::runtime_error with the reason.
  void start(const std::string& address, unsigned short port, const PageLimits& limits);
  // The port listened on.
  unsigned short port() const;

  // One request, for libmicrohttpd: the status to answer with, the body and
  // its type.
  struct Reply {
    unsigned code = 500;
    std::string body;
    const char* type = "";
  };
  Reply reply(const std::string& method, const std::string& url);

 private:
  const std::string page_;
  StatusCache& status_;
  PlotCache& plots_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace heron

#endif
