// station_page's limits, against the real program on loopback: what it
// refuses, and that refusing one client leaves it serving the others.  And
// its status cache, in memory: the stations asked once per period however
// many viewers ask.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "StatusCache.h"
#include "support/scratch_site.h"
#include "tools/station_page/page_fixture.h"

namespace {

const int kTimeout = 3;       // station_page -t: seconds before an idle connection is cut
const int kPerAddress = 32;   // its connections from one address

class StationPageLimits : public ::testing::Test {
 protected:
  void SetUp() override {
    site_.writeOps("ingest.conf", "# no stations\n");
    page_.reset(new PageProcess({"-t", std::to_string(kTimeout), "-r", "1"}));
    ASSERT_NE(page_->port(), 0) << page_->log();
  }
  // The page answers a client of the address within `seconds` (the page
  // counts a closed connection out once its thread has seen it go).
  void expectServing(const char* source = "127.0.0.9", double seconds = 0) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int got;
    while ((got = code(get(page_->port(), "/status.json", source))) != 200 && std::chrono::steady_clock::now() < end)
      usleep(50000);
    EXPECT_EQ(got, 200) << source << "\n" << page_->log();
  }
  ScratchSite site_;
  std::unique_ptr<PageProcess> page_;
};

TEST_F(StationPageLimits, ServesItsOwnPathsAndRefusesTheRest) {
  const std::string big(40000, 'a');
  const struct {
    std::string request;
    int code;
  } cases[] = {
      {"GET / HTTP/1.1\r\nHost: s\r\n\r\n", 200},
      {"HEAD /status.json HTTP/1.1\r\nHost: s\r\n\r\n", 200},
      {"GET /../etc/passwd HTTP/1.1\r\nHost: s\r\n\r\n", 404},
      {"GET /%2e%2e/etc/passwd HTTP/1.1\r\nHost: s\r\n\r\n", 404},
      {"GET /plot/../x HTTP/1.1\r\nHost: s\r\n\r\n", 404},
      {"GET /plot/nosuch.png HTTP/1.1\r\nHost: s\r\n\r\n", 404},
      {"GET /plot/ HTTP/1.1\r\nHost: s\r\n\r\n", 404},
      {"POST / HTTP/1.1\r\nHost: s\r\nContent-Length: 3\r\n\r\nabc", 405},
      {"DELETE /status.json HTTP/1.1\r\nHost: s\r\n\r\n", 405},
      {"GET / HTTP/1.1\r\nHost: s\r\nX-Big: " + big + "\r\n\r\n", 431},
      {"GET /" + big + " HTTP/1.1\r\nHost: s\r\n\r\n", 414},
  };
  for (const auto& c : cases) {
    const std::string reply = exchange(page_->port(), c.request);
    EXPECT_EQ(code(reply), c.code) << c.request.substr(0, 40) << "\n" << reply.substr(0, 200);
  }
  EXPECT_NE(get(page_->port(), "/").find("<title>Stations</title>"), std::string::npos);
  expectServing();
}

TEST_F(StationPageLimits, SlowClientIsCutAndOthersServed) {
  const int slow = connectFrom("127.0.0.1", page_->port());
  ASSERT_GE(slow, 0);
  ASSERT_EQ(send(slow, "GET / HTTP/1.1\r\nHo", 18, MSG_NOSIGNAL), 18);
  const auto start = std::chrono::steady_clock::now();
  expectServing();
  const std::string got = readAll(slow, kTimeout + 5);  // until the page closes it
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_LT(waited, kTimeout + 4) << "the half-sent request was not cut";
  EXPECT_GT(waited, kTimeout - 1) << got;
  close(slow);
  expectServing();
}

TEST_F(StationPageLimits, ConnectionsBeyondTheLimitAreRefused) {
  std::vector<int> flood;
  for (int i = 0; i < kPerAddress + 4; ++i) flood.push_back(connectFrom("127.0.0.1", page_->port()));
  // The four past the limit are closed at once; the others wait for a
  // request until the time-out.
  int closed = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(kTimeout - 1);
  while (closed < 4 && std::chrono::steady_clock::now() < end) {
    closed = 0;
    for (int fd : flood) {
      struct pollfd p = {fd, POLLIN, 0};
      char c;
      closed += fd < 0 || (poll(&p, 1, 0) == 1 && recv(fd, &c, 1, MSG_PEEK) <= 0);
    }
    usleep(20000);
  }
  EXPECT_EQ(closed, 4);
  expectServing("127.0.0.2");  // another address is served meanwhile
  for (int fd : flood)
    if (fd >= 0) close(fd);
  expectServing("127.0.0.1", 2);
}

TEST(StatusCache, AsksOncePerPeriodWhateverTheViewers) {
  std::atomic<int> asks{0};
  heron::StatusCache cache(
      [&] {
        ++asks;
        usleep(20000);  // as a slow server would, so that viewers pile up
        return std::vector<StationView>(1);
      },
      0.5);
  std::vector<std::thread> viewers;
  for (int v = 0; v < 8; ++v)
    viewers.emplace_back([&] {
      for (int k = 0; k < 20; ++k) EXPECT_NE(cache.json().find("\"stations\""), std::string::npos);
    });
  for (auto& t : viewers) t.join();
  EXPECT_EQ(asks, 1);
  usleep(600000);
  cache.json();
  cache.json();
  EXPECT_EQ(asks, 2);
}

}  // namespace
