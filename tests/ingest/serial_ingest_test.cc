// The supervisor's reports of children that are not its own, which a daemon
// run cannot produce: exit value and signal name of each, map unchanged; and
// its restart policy over spans of time a daemon run cannot wait through.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <algorithm>

#include "SerialIngest.h"  // logs to standard error: nothing here opens the system log

TEST(SignalHandler, ReportsUnknownChildren) {
  char* argv[] = {const_cast<char*>("serial_ingest"), nullptr};
  SerialIngest app(1, argv);
  pid_t exited = fork();
  if (exited == 0) _exit(3);
  pid_t killed = fork();
  if (killed == 0) pause();
  kill(killed, SIGKILL);
  siginfo_t info;  // both have ended before the handler looks
  for (pid_t pid : {exited, killed}) waitid(P_PID, pid, &info, WEXITED | WNOWAIT);
  testing::internal::CaptureStderr();
  app.signalHandler(SIGCHLD);
  const std::string err = testing::internal::GetCapturedStderr();
  for (const std::string& line : {"unknown child of serial_ingest (pid=" + std::to_string(exited) +
                                      ") has exited/stopped, exit value:3, signal:none(0)\n",
                                  "unknown child of serial_ingest (pid=" + std::to_string(killed) +
                                      ") has exited/stopped, exit value:0, signal:SIGKILL(9)\n"})
    EXPECT_NE(err.find(line), std::string::npos) << err;
  EXPECT_TRUE(app.childProcs().empty());
}

TEST(RestartPolicy, QuickEndsDoubleTheDelayToAMinuteALongRunClearsItFailuresReportedEveryTenMinutes) {
  struct Row {
    double start, end, delay;  // the next start is due `delay` after the end
  } rows[] = {{0, 0.1, 1},      {1.1, 1.2, 2},      {3.2, 3.3, 4},    {7.3, 7.4, 8},     {15.4, 15.5, 16},
              {31.5, 31.6, 32}, {63.6, 63.7, 60},   {123.7, 153.7, 0},  // ran 30 s: at once, delay kept
              {153.7, 153.8, 60}, {213.8, 283.8, 0}, {283.8, 283.9, 1}};  // ran 70 s: delay cleared
  RestartPolicy p;
  for (const Row& r : rows) {
    p.started(r.start);
    p.ended(r.end);
    EXPECT_DOUBLE_EQ(std::max(p.due() - r.end, 0.0), r.delay) << r.start;
  }
  int count = -1;  // 0 for a first failure, else the failures since the last report
  EXPECT_TRUE(p.failed(0, &count) && count == 0);
  for (int t = 10; t < 600; t += 10) EXPECT_FALSE(p.failed(t, &count)) << t;
  EXPECT_TRUE(p.failed(600, &count) && count == 60);
  p.opened();
  EXPECT_TRUE(p.failed(610, &count) && count == 0);
}
