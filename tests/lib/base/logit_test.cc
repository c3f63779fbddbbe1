// Logging to standard error and the system log's zone swap, and the one
// route every message takes.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "base/logit.h"
#include "rpc/ingest_client.h"
#include "site/heron_fopen.h"

TEST(Logit, StandardErrorFormExpandsPercentM) {
  syslogit = 0;
  testing::internal::CaptureStderr();
  errno = EACCES;
  logit(LOG_NOTICE, "%s %d%% %m and %m; %%m stays", "port", 50);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("port 50% ") + strerror(EACCES) + " and " + strerror(EACCES) + "; %m stays\n");
  EXPECT_STREQ(signame(10), "SIGBUS");  // the classic number, not this platform's
}

TEST(Logit, SystemLogFormRestoresTheCallersZone) {
  const char* had = getenv("TZ");
  const std::string saved = had ? had : "";
  unsetenv("TZ");
  openlogit("logit_test", LOG_PID, LOG_LOCAL5, "UTC");
  logit(LOG_INFO, "zone swap check");
  // The caller had no zone: afterwards it is pinned to GMT, not left on UTC.
  EXPECT_STREQ(getenv("TZ"), "GMT");
  setenv("TZ", "America/Denver", 1);
  logit(LOG_INFO, "zone swap check");
  EXPECT_STREQ(getenv("TZ"), "America/Denver");
  syslogit = 0;
  closelog();
  had ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
}

// A program's message and the library's go the same way: to the system log in
// a daemon, to standard error in a tool, the text the same in both.
TEST(Logit, EachModeSendsEveryMessageToItsOwnEnd) {
  std::vector<std::string> toLog, toStderr;
  const heron::LogEnds saved = heron::setLogEnds(
      {[&](int priority, const std::string& t) { toLog.push_back(std::to_string(priority) + " " + t); },
       [&](const std::string& t) { toStderr.push_back(t); }});
  const struct {
    std::function<void()> report;
    int priority;
    std::string text;
  } messages[] = {
      {[] { errno = ENOENT, logit(LOG_NOTICE, "port %d: %m", 3); }, LOG_NOTICE, "port 3: No such file or directory"},
      {[] { ingest_perror("t1", "h", INGEST_ERR_CONNECT); }, LOG_ERR, "t1@h: can't connect to ingestor"},
      {[] { EXPECT_EQ(heron_fopen("/nonexistent/f", "r"), nullptr); }, LOG_ERR, "/nonexistent/f: No such file or directory"},
  };
  for (int daemon : {1, 0})
    for (const auto& m : messages) {
      syslogit = daemon;
      toLog.clear(), toStderr.clear();
      m.report();
      const std::vector<std::string> logged{std::to_string(m.priority) + " " + m.text}, printed{m.text};
      EXPECT_EQ(toLog, daemon ? logged : std::vector<std::string>()) << m.text;
      EXPECT_EQ(toStderr, daemon ? std::vector<std::string>() : printed) << m.text;
    }
  syslogit = 0;
  heron::setLogEnds(saved);
}
