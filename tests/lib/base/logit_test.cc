// Logging to standard error, the system-log zone swap, and signal names.
#include <gtest/gtest.h>

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "base/logit.h"

TEST(Signame, ClassicNumberingAndEdges) {
  EXPECT_STREQ(signame(0), "none");
  EXPECT_STREQ(signame(9), "SIGKILL");
  EXPECT_STREQ(signame(10), "SIGBUS");  // the classic number, not this platform's
  EXPECT_STREQ(signame(20), "SIGCHLD");
  EXPECT_STREQ(signame(31), "SIGUSR2");
  EXPECT_STREQ(signame(32), "unknown");
  EXPECT_STREQ(signame(-1), "unknown");
}

TEST(Logit, StandardErrorFormExpandsPercentM) {
  syslogit = 0;
  testing::internal::CaptureStderr();
  errno = ENOENT;
  logit(3, "cannot fork: %m");
  errno = EACCES;
  logit(5, "%s %d%% %m and %m", "port", 50);
  logit(6, "%%m stays literal");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("cannot fork: ") + strerror(ENOENT) + "\n" + "port 50% " + strerror(EACCES) +
                " and " + strerror(EACCES) + "\n" + "%m stays literal\n");
}

TEST(Logit, SystemLogFormRestoresTheCallersZone) {
  const char* had = getenv("TZ");
  std::string saved = had ? had : "";
  unsetenv("TZ");
  openlogit("logit_test", LOG_PID, LOG_LOCAL5, "UTC");
  errno = 0;
  logit(6, "zone swap check");
  // The caller had no zone: afterwards it is pinned to GMT, not left on UTC.
  ASSERT_NE(getenv("TZ"), nullptr);
  EXPECT_STREQ(getenv("TZ"), "GMT");
  setenv("TZ", "America/Denver", 1);
  logit(6, "zone swap check");
  EXPECT_STREQ(getenv("TZ"), "America/Denver");
  syslogit = 0;
  closelog();
  if (had)
    setenv("TZ", saved.c_str(), 1);
  else
    unsetenv("TZ");
}
