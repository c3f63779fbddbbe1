// The serial port on real pseudo-terminals.  The kernel forces 8 data bits
// and no parity on a pty, so character size and parity are checked in the
// working copy the port asked for; speed, stop bits and CLOCAL are read back
// from the device through a second descriptor.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <fcntl.h>
#include <pty.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <string>

#include "base/Exception.h"
#include "port/TTy.h"

namespace {
// A pty has no modem lines (TIOCMGET fails there), so a test can stand in a
// modem word for the port: this definition takes the place of the C
// library's ioctl for the whole test program and forwards everything else.
int fakeModemWord = -1;
}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list ap;
  va_start(ap, request);
  void* arg = va_arg(ap, void*);
  va_end(ap);
  if (request == TIOCMGET && fakeModemWord >= 0) {
    *static_cast<int*>(arg) = fakeModemWord;
    return 0;
  }
  using Ioctl = int (*)(int, unsigned long, ...);
  static Ioctl real = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
  return real(fd, request, arg);
}

namespace {
class PtyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(openpty(&master, &slave, nameBuf, nullptr, nullptr), 0);
    struct termios raw;
    tcgetattr(slave, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
  }
  void TearDown() override {
    close(master);
    close(slave);
  }
  void feed(const std::string& bytes) {
    ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  struct termios deviceState() {
    struct termios t;
    EXPECT_EQ(tcgetattr(slave, &t), 0);
    return t;
  }
  int master = -1, slave = -1;
  char nameBuf[64];
};

std::string ioMessage(const char* dev, const char* op, int err) {
  return std::string("IOException: ") + dev + ": " + op + ": " + strerror(err);
}
}  // namespace

TEST_F(PtyTest, SetUsualAppliesTheLineSettings) {
  TTy tty(nameBuf);
  tty.open(O_RDWR | O_NOCTTY, 23040, "odd", 7, 2, 1);
  struct termios dev = deviceState();
  EXPECT_EQ(cfgetospeed(&dev), static_cast<speed_t>(B230400));  // 23040 asks for 230400
  EXPECT_TRUE(dev.c_cflag & CSTOPB);
  EXPECT_TRUE(dev.c_cflag & CLOCAL);
  EXPECT_TRUE(dev.c_cflag & CREAD);
  const struct termios& asked = tty.attributes();
  EXPECT_EQ(asked.c_cflag & CSIZE, static_cast<tcflag_t>(CS7));
  EXPECT_EQ(asked.c_cflag & (PARENB | PARODD), static_cast<tcflag_t>(PARENB | PARODD));

  testing::internal::CaptureStderr();
  tty.set_usual(19200, "even", 8, 1, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  dev = deviceState();
  EXPECT_EQ(cfgetospeed(&dev), static_cast<speed_t>(B19200));
  EXPECT_FALSE(dev.c_cflag & (CSTOPB | CLOCAL));
  EXPECT_EQ(tty.attributes().c_cflag & (PARENB | PARODD), static_cast<tcflag_t>(PARENB));
}

TEST_F(PtyTest, UnknownRatesParitiesAndSizesFallBack) {
  TTy tty(nameBuf);
  tty.open(O_RDWR | O_NOCTTY);
  struct Case {
    int baud;
    const char* parity;
    int size;
    int stop;
    const char* warning;
  } cases[] = {
      {230400, "none", 8, 1, "Warning: unknown baud rate: 230400\n"},
      {50, "none", 4, 0, "Warning: unknown baud rate: 50\n"},
      {0, "Even", 9, 3, "Warning: unknown parity: Even\n"},  // 0 is B0 itself: no rate warning
  };
  for (const Case& c : cases) {
    tty.cflag() |= PARENB | CSTOPB;
    testing::internal::CaptureStderr();
    tty.set_usual(c.baud, c.parity, c.size, c.stop, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
    EXPECT_EQ(cfgetospeed(&tty.attributes()), static_cast<speed_t>(B0)) << c.baud;
    EXPECT_EQ(tty.attributes().c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_FALSE(tty.attributes().c_cflag & (PARENB | CSTOPB));
  }
}

TEST_F(PtyTest, ReadlineAndReadcharShareTheLookAhead) {
  TTy tty(nameBuf);
  tty.open(O_RDWR | O_NOCTTY);
  char buf[64];
  feed("ab\ncd\nef");
  EXPECT_EQ(tty.readline(buf, sizeof buf), 3);
  EXPECT_STREQ(buf, "ab\n");
  // Served from the look-ahead: nothing more is written, and a blocking read
  // here would hang the test.
  EXPECT_EQ(tty.readline(buf, sizeof buf), 3);
  EXPECT_STREQ(buf, "cd\n");
  feed("g\nhi");
  EXPECT_EQ(tty.readline(buf, sizeof buf), 4);
  EXPECT_STREQ(buf, "efg\n");
  // "hi" is look-ahead now; readchar must deliver it before touching the fd.
  EXPECT_EQ(tty.readchar(), 'h');
  EXPECT_EQ(tty.readchar(), 'i');
  feed("\xff" "z\n");
  EXPECT_EQ(tty.readchar(), -1);  // bytes above 0x7f come back negative
  EXPECT_EQ(tty.readline(buf, sizeof buf), 2);
  EXPECT_STREQ(buf, "z\n");

  EXPECT_EQ(tty.readline(buf, 1), 0);
  EXPECT_STREQ(buf, "");
  // A full buffer without a newline is returned as it is.
  feed("0123456789\n");
  EXPECT_EQ(tty.readline(buf, 5), 4);
  EXPECT_STREQ(buf, "0123");
  EXPECT_EQ(tty.read(buf, sizeof buf), 7);
}

TEST_F(PtyTest, FailuresNameTheDeviceAndOperation) {
  TTy tty(nameBuf);
  tty.open(O_RDWR | O_NOCTTY);
  // A pty has no modem lines: TIOCMGET fails there.
  int bits = 0;
  int expected = ioctl(slave, TIOCMGET, &bits) < 0 ? errno : 0;
  ASSERT_NE(expected, 0);
  try {
    tty.getmodem();
    FAIL();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), ioMessage(nameBuf, "ioctl TIOCMGET", expected));
    EXPECT_EQ(e.getErrno(), expected);
  }
  char text[10];
  EXPECT_THROW(tty.printmodem(text, sizeof text), oru::IOException);
  EXPECT_THROW(tty.carrier(), oru::IOException);
  EXPECT_EQ(tty.LKfile(), nullptr);
  EXPECT_FALSE(tty.LKfileExists());

  TTy missing("/nonexistent/tty");
  try {
    missing.open(O_RDWR);
    FAIL();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), ioMessage("/nonexistent/tty", "open", ENOENT));
  }
  // A regular file is not a terminal.
  try {
    TTy notatty("/dev/null");
    notatty.open(O_RDONLY);
    FAIL();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), ioMessage("/dev/null", "tcgetattr", ENOTTY));
  }
  // Operations on a descriptor that was never opened.
  TTy closed(nameBuf);
  try {
    closed.flushBoth();
    FAIL();
  } catch (const oru::IOException& e) {
    EXPECT_EQ(e.toString(), ioMessage(nameBuf, "tcflush TCIOFLUSH", EBADF));
  }
  EXPECT_THROW(closed.flushInput(), oru::IOException);
  EXPECT_THROW(closed.flushOutput(), oru::IOException);
  EXPECT_THROW(closed.setflags(), oru::IOException);
  EXPECT_THROW(closed.setblocking(), oru::IOException);
  char c;
  EXPECT_THROW(closed.read(&c, 1), oru::IOException);
  EXPECT_THROW(closed.write("x", 1), oru::IOException);
  EXPECT_THROW(closed.readline(&c, 1 + 1), oru::IOException);
  EXPECT_THROW(closed.LKfile(), oru::IOException);
}

TEST_F(PtyTest, ModemLinesInTheirOrder) {
  TTy tty(nameBuf);
  tty.open(O_RDWR | O_NOCTTY);
  fakeModemWord = TIOCM_DTR | TIOCM_RTS | TIOCM_CTS | TIOCM_DSR;
  char text[128];
  EXPECT_STREQ(tty.printmodem(text, sizeof text),
               "LE=OFF DTR=ON RTS=ON ST=OFF SR=OFF CTS=ON CD=OFF RNG=OFF DSR=ON ");
  EXPECT_STREQ(tty.printmodem(text, 10), "LE=OFF DT");
  EXPECT_EQ(tty.carrier(), 0);
  fakeModemWord = TIOCM_CD;  // carrier detect is not what carrier() reports
  EXPECT_EQ(tty.carrier(), 0);
  EXPECT_STREQ(tty.printmodem(text, sizeof text),
               "LE=OFF DTR=OFF RTS=OFF ST=OFF SR=OFF CTS=OFF CD=ON RNG=OFF DSR=OFF ");
  fakeModemWord = TIOCM_LE | TIOCM_ST | TIOCM_SR | TIOCM_RNG;
  EXPECT_EQ(tty.carrier(), 1);
  EXPECT_EQ(tty.getmodem(), TIOCM_LE | TIOCM_ST | TIOCM_SR | TIOCM_RNG);
  EXPECT_STREQ(tty.printmodem(text, sizeof text),
               "LE=ON DTR=OFF RTS=OFF ST=ON SR=ON CTS=OFF CD=OFF RNG=ON DSR=OFF ");
  fakeModemWord = -1;
}

TEST_F(PtyTest, AdoptedDescriptorAndBlockingMode) {
  int fd = open(nameBuf, O_RDWR | O_NOCTTY | O_NONBLOCK);
  ASSERT_GE(fd, 0);
  TTy tty(nameBuf, fd);  // now owns fd
  EXPECT_EQ(tty.fd(), fd);
  int before = tty.setblocking();
  EXPECT_TRUE(before & O_NONBLOCK);
  EXPECT_FALSE(fcntl(fd, F_GETFL) & O_NONBLOCK);
  tty.flushBoth();
  tty.flushInput();
  tty.flushOutput();
  EXPECT_EQ(tty.write("hi", 2), 2);
  char buf[4];
  EXPECT_EQ(read(master, buf, sizeof buf), 2);
  int notatty = open("/dev/null", O_RDONLY);
  EXPECT_THROW(TTy("/dev/null", notatty), oru::IOException);
  close(notatty);  // a descriptor that was refused stays the caller's
}
