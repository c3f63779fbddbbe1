// The station page in a real browser: serial_ingest runs Ingest on two
// pseudo-terminals that the test feeds, with the test's own rpcbind;
// station_page serves the page; headless Chromium, driven over its
// DevTools pipe (commands on its descriptor 3, replies on 4, each message
// JSON ending in a NUL), loads it, and the test reads the rendered DOM.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ingest/daemon_fixture.h"
#include "support/rpc_fixture.h"
#include "support/subprocess.h"
#include "tools/station_page/page_fixture.h"

namespace {

const double kRefresh = 1;  // station_page -r
// Writes the image of a captured screenshot, the reply on standard input,
// to the file named.
const char kSaveShot[] =
    "import base64, json, sys; open(sys.argv[1], 'wb').write(base64.b64decode(json.load(sys.stdin)['result']['data']))";

// Headless Chromium in a process group of its own, its profile and its
// temporary files in a fresh folder (which the caller removes); killed, group and all, when the object
// goes.
class Browser {
 public:
  explicit Browser(const std::string& profile) {
    int commands[2], replies[2];
    if (pipe2(commands, O_CLOEXEC) != 0 || pipe2(replies, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      setpgid(0, 0);
      const int in = fcntl(commands[0], F_DUPFD_CLOEXEC, 10), out = fcntl(replies[1], F_DUPFD_CLOEXEC, 10);
      const int quiet = ::open((profile + ".log").c_str(), O_WRONLY | O_CREAT, 0600);
      dup2(in, 3), dup2(out, 4), dup2(quiet, 1), dup2(quiet, 2);
      const std::string data = "--user-data-dir=" + profile;
      // Its own temporary files (a killed browser leaves them) go beside
      // the profile, into the folder the caller removes.
      setenv("TMPDIR", profile.substr(0, profile.rfind('/')).c_str(), 1);
      execl(CHROMIUM_BIN, CHROMIUM_BIN, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
            "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--remote-debugging-pipe", "--window-size=1100,1000", data.c_str(), "about:blank", nullptr);
      _exit(127);
    }
    close(commands[0]), close(replies[1]);
    in_ = commands[1], out_ = replies[0];
  }
  ~Browser() {
    if (pid_ > 0 && kill(-pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    if (in_ >= 0) close(in_), close(out_);
  }

  // Sends a command (to the page once open() has attached to it) and
  // returns its reply, "" when none comes within 20 s.
  std::string call(const std::string& method, const std::string& params) {
    const int id = next_++;
    std::string msg = "{\"id\":" + std::to_string(id) + ",\"method\":\"" + method + "\",\"params\":" + params +
                      (session_.empty() ? "" : ",\"sessionId\":\"" + session_ + "\"") + "}" + std::string(1, '\0');
    if (in_ < 0 || write(in_, msg.data(), msg.size()) != static_cast<ssize_t>(msg.size())) return "";
    const std::string head = "{\"id\":" + std::to_string(id) + ",";
    for (std::string m; !(m = next(20)).empty();)
      if (m.compare(0, head.size(), head) == 0) return m;
    return "";
  }
  // A page of its own, showing url, where the next calls go; false when
  // that fails.
  bool open(const std::string& url) {
    std::smatch m;
    const std::string target = call("Target.createTarget", "{\"url\":\"" + url + "\"}");
    if (!std::regex_search(target, m, std::regex("\"targetId\":\"([^\"]+)\""))) return false;
    const std::string attach = call("Target.attachToTarget", "{\"targetId\":\"" + m[1].str() + "\",\"flatten\":true}");
    return std::regex_search(attach, m, std::regex("\"sessionId\":\"([^\"]+)\"")) && !(session_ = m[1]).empty();
  }
  // The value of a JavaScript expression in the page, as a string, once it
  // matches `want` or `seconds` have passed.
  std::string eval(std::string expression, const std::string& want, double seconds) {
    expression = std::regex_replace(expression, std::regex("[\"\\\\]"), "\\$&");
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::string v;
    for (std::smatch m; !std::regex_search(v, std::regex(want)) && std::chrono::steady_clock::now() < end; usleep(100000))
      if (std::regex_search(v = call("Runtime.evaluate", "{\"expression\":\"String(" + expression + ")\"}"), m,
                            std::regex("\"value\":\"((?:[^\"\\\\]|\\\\.)*)\"")))
        v = std::regex_replace(m[1].str(), std::regex("\\\\(.)"), "$1");
    return v;
  }

 private:
  // The next message, waiting up to `seconds`.
  std::string next(double seconds) {
    if (buffer_.find('\0') == std::string::npos) buffer_ += readAll(out_, seconds, std::string(1, '\0'));
    const size_t nul = buffer_.find('\0');
    if (nul == std::string::npos) return "";
    std::string m = buffer_.substr(0, nul);
    buffer_.erase(0, nul + 1);
    return m;
  }

  std::string session_, buffer_;
  pid_t pid_ = -1;
  int in_ = -1, out_ = -1, next_ = 1;
};

class PageInBrowser : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!site_.unavailable().empty()) GTEST_SKIP() << site_.unavailable();
    if (access(CHROMIUM_BIN, X_OK) != 0) GTEST_SKIP() << CHROMIUM_BIN << " is absent: no browser to test the page in";
    ASSERT_TRUE(module_.ok()) << module_.error();
    for (const DaemonSite::Station& s : site_.addStations({"tern1", "tern2"}, number_)) master_.push_back(s.master);
    site_.writeOps("did.config", "x.s 1 ; y.s 2 ;\n");
    site_.writeOps("prep.config", "sensor s { module tern1 200 ; outputs x y ; calibrate serial_short \"big\" ; }\n");
    pids_ = site_.startStations(INGEST_BIN_DIR);
    ASSERT_TRUE(pids_.size() == 3 && pids_[2] > 0) << "the daemon and two Ingests";
    feeder_ = std::thread([this] { feed(); });
  }
  void TearDown() override {
    stop_ = true;
    if (feeder_.joinable()) feeder_.join();
    EXPECT_TRUE(site_.endStations(pids_)) << "the supervisor";
  }
  // A sample on channel 200 every 50 ms on each port still fed: its
  // tag (milliseconds of the day), and two shorts, 0 and a count.
  void feed() {
    for (uint32_t n = 0; !stop_; ++n) {
      const std::string s = heron_test::nowSample(200, n) + '\3';
      for (int k = 0; k < 2; ++k)
        if ((k == 0 || !quiet_) && write(master_[k], s.data(), s.size()) != static_cast<ssize_t>(s.size()))
          ADD_FAILURE() << "port " << k + 1 << ": " << strerror(errno);
      usleep(50000);
    }
  }

  DaemonSite site_;
  heron_test::TestModuleServer module_{{"PROJECT=p", "OPS=o"}};
  const int number_ = heron_test::testSystemNumber();
  std::vector<int> master_;
  std::vector<pid_t> pids_;  // the supervisor's, then tern1's and tern2's Ingest's
  std::thread feeder_;
  std::atomic<bool> stop_{false}, quiet_{false};
};

TEST_F(PageInBrowser, ListsStationsShowsQuietAndLoadsThePlot) {
  PageProcess page({"-r", std::to_string(kRefresh), "--cal-dump", CAL_DUMP_BIN});
  ASSERT_NE(page.port(), 0) << page.log();
  // Until cal_dump finds samples of tern1 in the last hour, then until the
  // page has drawn them.  A drawing that fails (asked too soon) is kept for
  // the minute, so the second wait may take one; the browser below then
  // gets the drawn plot.
  RunResult found;
  for (int k = 0; k < 100 && found.status != 0; ++k, usleep(200000)) {
    const long now = static_cast<long>(time(nullptr));
    found = runProgram({CAL_DUMP_BIN, "-s", std::to_string(now - 3600), "-e", std::to_string(now + 1), "x.s"});
  }
  ASSERT_EQ(found.status, 0) << found.err;
  std::string plot;
  for (int k = 0; k < 150 && plot.rfind("HTTP/1.1 200", 0) != 0; ++k, usleep(500000))
    plot = exchange(page.port(), "/plot/tern1.png");
  ASSERT_EQ(plot.substr(0, 12), "HTTP/1.1 200") << page.log();
  Browser browser(site_.dir() + "/browser");
  ASSERT_TRUE(browser.open("http://127.0.0.1:" + std::to_string(page.port()) + "/"));
  const std::string rows = "[...document.querySelectorAll('tr.station')].map(r => r.dataset.station + '=' + r.className)";
  EXPECT_EQ(browser.eval(rows, "tern2=station state-up", 10), "tern1=station state-up,tern2=station state-up");

  // tern2 falls silent: once the status says so, the page shows it within
  // a refresh (the status is kept at most a refresh, and the page asks again
  // after one).
  quiet_ = true;
  const std::regex quiet("\"tern2\", \"port\": \"[^\"]*\", \"state\": \"quiet\"");
  for (int k = 0; k < 125 && !std::regex_search(exchange(page.port(), "/status.json"), quiet); ++k) usleep(200000);
  EXPECT_EQ(browser.eval(rows, "tern2=station state-quiet", 2 * kRefresh + 0.5),
            "tern1=station state-up,tern2=station state-quiet");

  // tern1's last hour, drawn by cal_dump; the view saved for the manual.
  EXPECT_NE(browser.eval("document.querySelector('#plot-tern1 img').naturalWidth", "^[1-9]", 30), "0") << page.log();
  const RunResult saved = runProgram({"/usr/bin/python3", "-c", kSaveShot, SCREENSHOT_FILE},
                                     browser.call("Page.captureScreenshot", "{}"));
  EXPECT_EQ(saved.status, 0) << saved.err;
}

}  // namespace
