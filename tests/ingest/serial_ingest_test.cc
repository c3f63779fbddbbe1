// The application object: opening an instrument port, the signal handler's
// reports, and leaving the terminal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <limits.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>

#include "base/Exception.h"
#include "SerialIngest.h"
#include "port/TTy.h"
#include "base/logit.h"

namespace {
class App : public ::testing::Test {
 protected:
  void SetUp() override {
    syslogit = 0;
    char* argv[] = {const_cast<char*>("serial_ingest"), nullptr};
    app.reset(new SerialIngest(1, argv));
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  }
  void TearDown() override {
    close(master);
    close(slave);
  }
  std::unique_ptr<SerialIngest> app;
  int master = -1, slave = -1;
  char name[64];
};
}  // namespace

TEST_F(App, OpenttyPutsThePortInRawMode) {
  testing::internal::CaptureStderr();
  std::unique_ptr<TTy> tty(app->opentty(name, 9600, "even", 7, 2, "CTS", 1));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string("Opened: ") + name + "\n");
  const struct termios& t = tty->attributes();
  EXPECT_EQ(t.c_iflag & (INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXON | IXANY | IXOFF | IMAXBEL), 0u);
  EXPECT_TRUE(t.c_iflag & IGNBRK);
  EXPECT_EQ(t.c_oflag & (OPOST | ONLCR), static_cast<tcflag_t>(OPOST | ONLCR));
  EXPECT_EQ(t.c_oflag & (OFILL | OFDEL | NLDLY | CRDLY | TABDLY | BSDLY | VTDLY | FFDLY), 0u);
  EXPECT_EQ(t.c_lflag & (ISIG | ICANON | ECHO | ECHOCTL | IEXTEN), 0u);
  EXPECT_TRUE(t.c_cflag & HUPCL);
  EXPECT_TRUE(t.c_cflag & CRTSCTS);
  EXPECT_EQ(t.c_cflag & CSIZE, static_cast<tcflag_t>(CS7));
  EXPECT_EQ(t.c_cflag & (PARENB | PARODD), static_cast<tcflag_t>(PARENB));
  EXPECT_EQ(t.c_cc[VMIN], 128);
  EXPECT_EQ(t.c_cc[VTIME], 0);
  EXPECT_FALSE(fcntl(tty->fd(), F_GETFL) & O_NONBLOCK);
  // What reached the device, read through our own descriptor.
  struct termios dev;
  ASSERT_EQ(tcgetattr(slave, &dev), 0);
  EXPECT_EQ(cfgetospeed(&dev), static_cast<speed_t>(B9600));
  EXPECT_EQ(dev.c_lflag & ICANON, 0u);
  EXPECT_EQ(dev.c_cc[VMIN], 128);
  EXPECT_TRUE(dev.c_cflag & (CLOCAL | CSTOPB | HUPCL));
}

TEST_F(App, FlowControlWords) {
  testing::internal::CaptureStderr();
  std::unique_ptr<TTy> rts(app->opentty(name, 9600, "none", 8, 1, "RTS", 1));
  EXPECT_FALSE(rts->attributes().c_cflag & CRTSCTS);  // accepted, changes nothing
  try {
    std::unique_ptr<TTy> bad(app->opentty(name, 9600, "none", 8, 1, "rtscts", 1));
    FAIL();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), std::string("IOException: ") + name + ": Unknown flow control: rtscts");
  }
  testing::internal::GetCapturedStderr();
}

TEST_F(App, ChildReportsAndSignalFlags) {
  pid_t exited = fork();
  if (exited == 0) _exit(3);
  pid_t killed = fork();
  if (killed == 0) pause();
  kill(killed, SIGKILL);
  // Let both end before the handler looks.
  siginfo_t info;
  waitid(P_PID, exited, &info, WEXITED | WNOWAIT);
  waitid(P_PID, killed, &info, WEXITED | WNOWAIT);

  testing::internal::CaptureStderr();
  app->signalHandler(SIGCHLD);
  app->signalHandler(SIGHUP);
  app->signalHandler(SIGINT);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("unknown child of serial_ingest (pid=" + std::to_string(exited) +
                     ") has exited/stopped, exit value:3, signal:none(0)\n"),
            std::string::npos)
      << err;
  EXPECT_NE(err.find("unknown child of serial_ingest (pid=" + std::to_string(killed) +
                     ") has exited/stopped, exit value:0, signal:SIGKILL(9)\n"),
            std::string::npos)
      << err;
  EXPECT_NE(err.find("serial_ingest received SIGHUP signal, will reread ingest.conf\n"), std::string::npos);
  EXPECT_NE(err.find("serial_ingest received 2 signal, terminating\n"), std::string::npos);
}

TEST(Disassociate, NewSessionAndNoInheritedDescriptors) {
  char path[] = "/tmp/disassocXXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  int leak = open("/dev/null", O_RDONLY);  // must not survive
  pid_t pid = fork();
  if (pid == 0) {
    disassociate();
    std::ofstream report(path);
    char in[PATH_MAX] = {0};
    ssize_t n = readlink("/proc/self/fd/0", in, sizeof in - 1);
    (void)n;
    report << (getsid(0) == getpid()) << ' ' << in << ' ' << (fcntl(leak, F_GETFD) < 0) << '\n';
    report.close();
    _exit(0);
  }
  int status;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::string line;
  for (int i = 0; i < 300 && line.empty(); ++i) {
    usleep(10000);
    std::ifstream in(path);
    std::getline(in, line);
  }
  unlink(path);
  close(leak);
  EXPECT_EQ(line, "1 /dev/null 1");
}
