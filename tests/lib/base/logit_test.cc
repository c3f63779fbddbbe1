// The one route every message takes, and the system log's zone swap.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "base/logit.h"
#include "rpc/ingest_client.h"

// A program's message and the library's go the same way: to the system log in
// a daemon, to standard error in a tool, the same text in both.
TEST(Logit, EachModeSendsEveryMessageToItsOwnEnd) {
  std::vector<std::string> got;
  const heron::LogEnds saved =
      heron::setLogEnds({[&](int priority, const std::string& t) { got.push_back(std::to_string(priority) + " " + t); },
                         [&](const std::string& t) { got.push_back("stderr " + t); }});
  const std::string denied = strerror(EACCES);
  const struct {
    int daemon;
    std::string notice, error;  // how each end marks a message of that priority
  } modes[] = {{1, "5 ", "3 "}, {0, "stderr ", "stderr "}};
  for (const auto& m : modes) {
    syslogit = m.daemon;
    got.clear();
    errno = EACCES, logit(LOG_NOTICE, "%s %d%% %m and %m; %%m stays", "port", 50);
    ingest_perror("t1", "h", INGEST_ERR_CONNECT);
    EXPECT_EQ(got, (std::vector<std::string>{m.notice + "port 50% " + denied + " and " + denied + "; %m stays",
                                             m.error + "t1@h: can't connect to ingestor"}));
  }
  syslogit = 0;
  heron::setLogEnds(saved);
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
