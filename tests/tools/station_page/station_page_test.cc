// station_page's limits, against the real program on loopback: what it
// refuses, and that refusing one client leaves it serving the others.  And
// its status cache, in memory: the stations asked once per period however
// many viewers ask.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "StatusCache.h"
#include "support/scratch_site.h"
#include "tools/station_page/page_fixture.h"

namespace {

// station_page -t (seconds before an idle connection is cut), and its
// connections from one address.
const int kTimeout = 3, kPerAddress = 32;

TEST(StationPage, RefusesWhatItDoesNotServeAndKeepsServing) {
  ScratchSite site;
  site.writeOps("ingest.conf", "# no stations\n");
  PageProcess page({"-t", std::to_string(kTimeout)});
  ASSERT_NE(page.port(), 0) << page.log();
  // The page answers a client of the address within `seconds` (a closed
  // connection is counted out once its thread has seen it go).
  auto expectServing = [&](const char* source, double seconds) {
    std::string got;
    for (int k = 0; (got = exchange(page.port(), "/status.json", source).substr(0, 12)) != "HTTP/1.1 200" && k < seconds * 20; ++k) usleep(50000);
    EXPECT_EQ(got, "HTTP/1.1 200") << source << "\n" << page.log();
  };
  const std::string big(40000, 'a'), end = " HTTP/1.1\r\nHost: s\r\n\r\n";
  const std::pair<std::string, int> cases[] = {
      {"GET /" + end, 200}, {"HEAD /status.json" + end, 200}, {"GET /../etc/passwd" + end, 404},
      {"GET /%2e%2e/etc/passwd" + end, 404}, {"GET /plot/../x" + end, 404}, {"GET /plot/nosuch.png" + end, 404},
      {"POST / HTTP/1.1\r\nHost: s\r\nContent-Length: 3\r\n\r\nabc", 405}, {"DELETE /status.json" + end, 405},
      {"GET / HTTP/1.1\r\nHost: s\r\nX-Big: " + big + "\r\n\r\n", 431}, {"GET /" + big + end, 414}};
  for (const auto& c : cases)
    EXPECT_EQ(exchange(page.port(), c.first).substr(0, 12), "HTTP/1.1 " + std::to_string(c.second)) << c.first.substr(0, 40);

  // Half a request is cut after the time-out, and others served meanwhile.
  const int slow = heron_test::dialFrom("127.0.0.1", page.port());
  ASSERT_EQ(send(slow, "GET / HTTP/1.1\r\nHo", 18, MSG_NOSIGNAL), 18);
  const auto sent = std::chrono::steady_clock::now();
  expectServing("127.0.0.2", 0);
  readAll(slow, kTimeout + 5);
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - sent).count();
  EXPECT_TRUE(waited > kTimeout - 1 && waited < kTimeout + 4) << waited << " s";
  close(slow);

  // Past the limit of one address, connections are closed unanswered;
  // another address is served meanwhile.
  std::vector<int> flood;
  for (int i = 0; i < kPerAddress + 4; ++i) flood.push_back(heron_test::dialFrom("127.0.0.1", page.port()));
  expectServing("127.0.0.2", 0);
  const std::string request = "GET / HTTP/1.1\r\nHost: s\r\nConnection: close\r\n\r\n";
  int answered = 0;
  for (int fd : flood)
    answered += send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0 && readAll(fd, 2).compare(0, 12, "HTTP/1.1 200") == 0;
  EXPECT_EQ(answered, kPerAddress);
  for (int fd : flood) close(fd);
  expectServing("127.0.0.1", 2);
}

TEST(StationPage, StatusAskedOncePerPeriodWhateverTheViewers) {
  std::atomic<int> asks{0};
  heron::StatusCache cache([&] { return ++asks, usleep(20000), std::vector<StationView>(1); }, 0.5);
  std::vector<std::thread> viewers;
  for (int v = 0; v < 8; ++v)
    viewers.emplace_back([&] { for (int k = 0; k < 20; ++k) cache.json(); });
  for (auto& t : viewers) t.join();
  EXPECT_EQ(asks, 1);
  usleep(600000);
  cache.json();
  EXPECT_EQ(asks, 2);
}

}  // namespace
