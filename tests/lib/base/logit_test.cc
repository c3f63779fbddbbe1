// Logging to standard error and the system log's zone swap.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "base/logit.h"

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
