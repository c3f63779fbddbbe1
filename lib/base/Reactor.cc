#include "base/Reactor.h"

#include <errno.h>
#include <string.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "base/Exception.h"
#include "base/clock.h"
#include "base/logit.h"

namespace heron {

Reactor::Reactor() { sigemptyset(&watched_); }

Reactor::~Reactor() {
  if (sigfd_ >= 0 && close(sigfd_) != 0) logit(LOG_ERR, "close of the signal descriptor %d: %m", sigfd_);
}

void Reactor::addFileHandler(int fd, short events, FileHandler handler) {
  if (fd < 0 || files_.count(fd))
    throw oru::IOException("reactor", "addFileHandler", "descriptor " + std::to_string(fd) + " is invalid or taken");
  files_[fd] = {events, std::move(handler)};
}

void Reactor::setFileEvents(int fd, short events) {
  auto it = files_.find(fd);
  if (it == files_.end())
    throw oru::IOException("reactor", "setFileEvents", "descriptor " + std::to_string(fd) + " has no handler");
  it->second.events = events;
}

void Reactor::removeFileHandler(int fd) { files_.erase(fd); }

void Reactor::addPollSet(Gather gather, Serve serve) { sets_.push_back({std::move(gather), std::move(serve)}); }

Reactor::TimerId Reactor::addTimeout(double delay, Callback callback) {
  const double due = monotonicSeconds() + (delay > 0 ? delay : 0);
  timers_[{due, ++lastTimer_}] = std::move(callback);
  return lastTimer_;
}

void Reactor::cancelTimeout(TimerId id) {
  for (auto it = timers_.begin(); it != timers_.end(); ++it)
    if (it->first.second == id) {
      timers_.erase(it);
      return;
    }
}

void Reactor::addSignal(int sig, SignalHandler handler) {
  const std::string name = "signal " + std::to_string(sig);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, sig);
  if (sigprocmask(SIG_BLOCK, &one, nullptr) != 0) throw oru::IOException(name.c_str(), "sigprocmask", errno);
  struct sigaction now;
  if (sigaction(sig, nullptr, &now) != 0) throw oru::IOException(name.c_str(), "sigaction", errno);
  if (now.sa_handler == SIG_IGN) {
    now.sa_handler = SIG_DFL;
    if (sigaction(sig, &now, nullptr) != 0) throw oru::IOException(name.c_str(), "sigaction", errno);
  }
  sigaddset(&watched_, sig);
  const int fd = signalfd(sigfd_, &watched_, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) throw oru::IOException(name.c_str(), "signalfd", errno);
  sigfd_ = fd;
  signals_[sig] = std::move(handler);
}

void Reactor::takeSignals() {
  if (sigfd_ < 0) return;
  while (!stopped_) {
    struct signalfd_siginfo si;
    const ssize_t n = read(sigfd_, &si, sizeof si);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EAGAIN) return;
    if (n < 0) throw oru::IOException("signal descriptor", "read", errno);
    if (n != static_cast<ssize_t>(sizeof si)) throw oru::IOException("signal descriptor", "read", "short read");
    const int sig = static_cast<int>(si.ssi_signo);
    auto it = signals_.find(sig);
    if (it == signals_.end()) continue;
    const SignalHandler handler = it->second;  // a copy: it may replace itself
    handler(sig);
  }
}

void Reactor::dispatch() {
  fds_.clear();
  if (sigfd_ >= 0) fds_.push_back({sigfd_, POLLIN, 0});
  const size_t first = fds_.size();
  for (const auto& f : files_)
    if (f.second.events != 0) fds_.push_back({f.first, f.second.events, 0});
  const size_t own = fds_.size();
  std::vector<size_t> starts;
  for (PollSet& s : sets_) {
    starts.push_back(fds_.size());
    s.gather(fds_);
  }
  struct timespec limit = {0, 0};
  if (!timers_.empty()) {
    const double left = timers_.begin()->first.first - monotonicSeconds();
    if (left > 0) {
      limit.tv_sec = static_cast<time_t>(left);
      limit.tv_nsec = static_cast<long>(std::ceil((left - static_cast<double>(limit.tv_sec)) * 1e9));
      if (limit.tv_nsec >= 1000000000L) limit = {limit.tv_sec + 1, 0};
    }
  }
  if (ppoll(fds_.data(), fds_.size(), timers_.empty() ? nullptr : &limit, nullptr) < 0) {
    if (errno != EINTR) throw oru::IOException("reactor", "ppoll", errno);
    for (struct pollfd& p : fds_) p.revents = 0;
  }
  if (first > 0 && fds_[0].revents != 0) takeSignals();
  serveFiles(first, own);
  for (size_t k = 0; k < sets_.size() && !stopped_; ++k) {
    const size_t end = k + 1 < starts.size() ? starts[k + 1] : fds_.size();
    const Serve serve = sets_[k].serve;
    serve(fds_.data() + starts[k], end - starts[k]);
  }
  fireTimers();
}

void Reactor::serveFiles(size_t from, size_t to) {
  for (size_t k = from; k < to && !stopped_; ++k) {
    const struct pollfd p = fds_[k];
    if (p.revents == 0) continue;
    if (p.revents & POLLNVAL)
      throw oru::IOException("reactor", "poll", "descriptor " + std::to_string(p.fd) + " is not open");
    auto it = files_.find(p.fd);
    if (it == files_.end() || (it->second.events & p.events) == 0) continue;  // removed meanwhile
    const FileHandler handler = it->second.handler;
    handler(p.revents);
  }
}

void Reactor::fireTimers() {
  if (timers_.empty() || stopped_) return;
  const double now = monotonicSeconds();
  const TimerId newest = lastTimer_;
  while (!timers_.empty() && !stopped_) {
    auto it = timers_.begin();
    if (it->first.first > now || it->first.second > newest) return;
    const Callback callback = std::move(it->second);
    timers_.erase(it);
    callback();
  }
}

void Reactor::run() {
  while (!stopped_) dispatch();
}

}  // namespace heron
