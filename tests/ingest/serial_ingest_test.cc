// The supervisor's reports of children that are not its own, which a daemon
// run cannot produce: exit value and signal name of each, map unchanged.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

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
