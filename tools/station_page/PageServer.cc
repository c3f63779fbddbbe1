#include "PageServer.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <stdarg.h>
#include <stdio.h>

#include <stdexcept>

#include "base/logit.h"

namespace {

const char kText[] = "text/plain; charset=utf-8";

// libmicrohttpd's own complaints, into the program's log.
void logMhd(void*, const char* format, va_list ap) {
  char text[512];
  vsnprintf(text, sizeof text, format, ap);
  std::string line = text;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  logit(LOG_WARNING, "http: %s", line.c_str());
}

MHD_Result answer(void* cls, MHD_Connection* connection, const char* url, const char* method, const char*, const char*,
                  size_t* uploadSize, void**) {
  auto* server = static_cast<heron::PageServer*>(cls);
  heron::PageServer::Reply r;
  try {
    r = server->reply(method, url);
  } catch (const std::exception& e) {
    logit(LOG_ERR, "%s %s: %s", method, url, e.what());
    r = {MHD_HTTP_INTERNAL_SERVER_ERROR, std::string(e.what()) + "\n", kText};
  }
  *uploadSize = 0;  // a body is never read: no request here has one
  MHD_Response* response =
      MHD_create_response_from_buffer(r.body.size(), const_cast<char*>(r.body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  bool ok = MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, r.type) == MHD_YES &&
            MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store") == MHD_YES &&
            MHD_add_response_header(response, "X-Content-Type-Options", "nosniff") == MHD_YES &&
            MHD_add_response_header(response, "Content-Security-Policy",
                                    "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; "
                                    "img-src 'self'; connect-src 'self'") == MHD_YES;
  if (ok && r.code == MHD_HTTP_METHOD_NOT_ALLOWED)
    ok = MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD") == MHD_YES;
  const MHD_Result queued = ok ? MHD_queue_response(connection, r.code, response) : MHD_NO;
  MHD_destroy_response(response);
  return queued;
}

}  // namespace

heron::PageServer::PageServer(std::string page, StatusCache& status, PlotCache& plots)
    : page_(std::move(page)), status_(status), plots_(plots) {}

heron::PageServer::~PageServer() {
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
}

heron::PageServer::Reply heron::PageServer::reply(const std::string& method, const std::string& url) {
  if (method != "GET" && method != "HEAD") return {MHD_HTTP_METHOD_NOT_ALLOWED, "GET and HEAD only\n", kText};
  if (url == "/") return {MHD_HTTP_OK, page_, "text/html; charset=utf-8"};
  if (url == "/status.json") return {MHD_HTTP_OK, status_.json(), "application/json"};
  const std::string prefix = "/plot/", suffix = ".png";
  if (url.size() > prefix.size() + suffix.size() && url.compare(0, prefix.size(), prefix) == 0 &&
      url.compare(url.size() - suffix.size(), suffix.size(), suffix) == 0) {
    const std::string station = url.substr(prefix.size(), url.size() - prefix.size() - suffix.size());
    if (plots_.knows(station)) {
      Reply r = {MHD_HTTP_OK, "", "image/png"};
      if (!plots_.image(station, &r.body)) r = {MHD_HTTP_SERVICE_UNAVAILABLE, r.body + "\n", kText};
      return r;
    }
  }
  return {MHD_HTTP_NOT_FOUND, "not found\n", kText};
}

void heron::PageServer::start(const std::string& address, unsigned short port, const PageLimits& limits) {
  struct sockaddr_in sin = {};
  sin.sin_family = AF_INET;
  sin.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &sin.sin_addr) != 1)
    throw std::runtime_error("\"" + address + "\" is no IPv4 address");
  daemon_ = MHD_start_daemon(MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG, port,
                             nullptr, nullptr, answer, this, MHD_OPTION_EXTERNAL_LOGGER, logMhd, nullptr,
                             MHD_OPTION_SOCK_ADDR, &sin, MHD_OPTION_CONNECTION_LIMIT, limits.connections,
                             MHD_OPTION_PER_IP_CONNECTION_LIMIT, limits.perAddress, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                             limits.memory, MHD_OPTION_CONNECTION_TIMEOUT, limits.timeout, MHD_OPTION_THREAD_STACK_SIZE,
                             static_cast<size_t>(256 * 1024), MHD_OPTION_END);
  if (daemon_ == nullptr)
    throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + " (see the message above)");
}

unsigned short heron::PageServer::port() const {
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
  return info != nullptr ? info->port : 0;
}
