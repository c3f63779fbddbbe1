// Ingest's own service (IngestService) for a test, registered with the
// test's rpcbind (see rpc_fixture.h) and served by a thread of the test.
// Ticking, it gives every client, every 20 ms, one raw sample of each
// channel it asked for: the 6-byte header (big-endian time tag in
// milliseconds of the day, channel, length 4) and the tick count,
// big-endian, as data.  Whatever the test starts afterwards reaches it on
// 127.0.0.1.  The constructor throws oru::Exception when the service cannot
// register.
#ifndef HERON_TESTS_LIVE_SERVICE_H
#define HERON_TESTS_LIVE_SERVICE_H

#include <poll.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "IngestService.h"
#include "base/clock.h"

namespace heron_test {

class LiveService {
 public:
  explicit LiveService(int number, AllowList allow = AllowList(), IngestService::Clock clock = heron::monotonicSeconds,
                       bool ticking = true)
      : input_(), service_(number, input_, allow, clock), ticking_(ticking), thread_([this] { run(); }) {
    // One round has run before the test goes on: the sanitizers' first look
    // at the service's objects needs one of its own.
    for (int i = 0; i < 500 && rounds_ == 0; ++i) usleep(10000);
  }
  ~LiveService() {
    stop_ = true;
    thread_.join();
  }
  LiveService(const LiveService&) = delete;
  LiveService& operator=(const LiveService&) = delete;

  size_t clients() {
    std::lock_guard<std::mutex> held(lock_);
    return service_.clients();
  }
  // Keeps the service out of every library call while held (before a fork).
  std::unique_lock<std::mutex> hold() { return std::unique_lock<std::mutex>(lock_); }

 private:
  void run() {
    std::vector<struct pollfd> fds;
    for (uint32_t ticks = 0; !stop_; ++ticks) {
      const double due = heron::monotonicSeconds() + 0.02;
      for (double left; !stop_ && (left = due - heron::monotonicSeconds()) > 0; ++rounds_) {
        std::lock_guard<std::mutex> held(lock_);
        fds.clear();
        service_.pollFds(fds);
        poll(fds.data(), fds.size(), static_cast<int>(left * 1000) + 1);
        service_.handle(fds.data(), 0);
      }
      std::lock_guard<std::mutex> held(lock_);
      for (int ch = 0; ticking_ && ch < 256; ++ch) service_.deliver(ch, sample(ch, ticks), 10);
      if (ticking_) service_.send();
    }
  }
  static const char* sample(int chan, uint32_t value) {
    static char s[10];
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    const uint32_t ms = static_cast<uint32_t>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000);
    const unsigned char bytes[10] = {static_cast<unsigned char>(ms >> 24), static_cast<unsigned char>(ms >> 16),
                                     static_cast<unsigned char>(ms >> 8), static_cast<unsigned char>(ms),
                                     static_cast<unsigned char>(chan), 4,
                                     static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
                                     static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
    memcpy(s, bytes, sizeof s);
    return s;
  }

  const InputState input_;
  IngestService service_;
  const bool ticking_;
  std::atomic<bool> stop_{false};
  std::atomic<int> rounds_{0};
  std::mutex lock_;
  std::thread thread_;
};

}  // namespace heron_test

#endif
