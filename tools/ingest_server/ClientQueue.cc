#include "ClientQueue.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/logit.h"

ClientQueue::ClientQueue(int fd, const std::string& nm, const struct sockaddr_in& to, bool dg, const uint32_t mask[8])
    : name(nm), port(ntohs(to.sin_port)), address(ntohl(to.sin_addr.s_addr)), dgram(dg), fd_(fd) {
  setMask(mask);
}

ClientQueue::~ClientQueue() {
  if (close(fd_) != 0) logit(LOG_WARNING, "client %s:%u: close: %s", name.c_str(), port, strerror(errno));
}

void ClientQueue::setMask(const uint32_t mask[8]) { memcpy(mask_, mask, sizeof mask_); }

void ClientQueue::push(const char* p, size_t n) {
  ++nsamples;
  if (dgram) {
    ssize_t w = ::send(fd_, p, n, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (w == static_cast<ssize_t>(n)) {
      ++nwrites;
      return;
    }
    ++nlost;
    if (w >= 0) ++partialWrites;
    else if (errno == EAGAIN) ++blockedWrites;
    else if (errno == ECONNREFUSED) ++unreachable;  // nobody listens there (yet)
    else ++writeerr;
    return;
  }
  if (queue_.size() + n > kQueueBytes) {
    ++nlost;
    return;
  }
  queue_.append(p, n);
}

bool ClientQueue::send() {
  if (dgram || queue_.empty() || dead_ || blocked_) return !dead_;
  ssize_t w = ::send(fd_, queue_.data(), queue_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (w < 0) {
    if (errno == EAGAIN || errno == EINTR) {
      ++blockedWrites;
      blocked_ = true;
      return true;
    }
    ++writeerr;
    logit(LOG_NOTICE, "client %s:%u: send: %s; dropped", name.c_str(), port, strerror(errno));
    dead_ = true;
    return false;
  }
  ++nwrites;
  if (static_cast<size_t>(w) < queue_.size()) {
    ++partialWrites;
    blocked_ = true;
  }
  queue_.erase(0, static_cast<size_t>(w));
  return true;
}

bool ClientQueue::drain() {
  char buf[512];
  ssize_t n = recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
  if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR && errno != ECONNREFUSED)) {
    if (!dgram) {
      logit(LOG_INFO, "client %s:%u has gone", name.c_str(), port);
      dead_ = true;
    }
  }
  return !dead_;
}
