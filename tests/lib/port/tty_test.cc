// The serial port on real pseudo-terminals.  A pty forces 8 data bits and no
// parity and has no modem lines, so the line settings are checked in the
// attributes the port asked for and the modem word is stood in for.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pty.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>

#include "base/Exception.h"
#include "port/TTy.h"
#include "port/opentty.h"
#include "support/thrown.h"

namespace {
// Stands in a modem word for TIOCMGET when not negative; this definition
// takes the place of the C library's ioctl in the whole test program.
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
  static auto real = reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
  return real(fd, request, arg);
}

namespace {
const auto thrown = [](const std::function<void()>& call) { return thrownText<oru::IOException>(call); };

class PtyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    ASSERT_EQ(tcgetattr(slave, &cooked), 0);
    struct termios raw = cooked;
    cfmakeraw(&raw);
    ASSERT_EQ(tcsetattr(slave, TCSANOW, &raw), 0);
  }
  void TearDown() override {
    close(master);
    close(slave);
  }
  void feed(const std::string& bytes) {
    ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
  std::string ioMessage(const char* op, int err, const std::string& dev = "") {
    return "IOException: " + (dev.empty() ? std::string(name) : dev) + ": " + op + ": " + strerror(err);
  }
  int master = -1, slave = -1;
  char name[64];
  struct termios cooked;
};
}  // namespace

TEST_F(PtyTest, OpenttyAppliesTheLineSettingsAndRawMode) {
  const tcflag_t lineBits = CSIZE | PARENB | PARODD | CSTOPB | CLOCAL | CRTSCTS | CREAD | HUPCL;
  struct Case { LineSettings line; speed_t speed; tcflag_t bits; std::string warning; } cases[] = {
      {{23040, "odd", 7, 2, "CTS", 1}, B230400, CS7 | PARENB | PARODD | CSTOPB | CLOCAL | CRTSCTS, ""},
      {{19200, "even", 8, 1, "RTSCTS", 0}, B19200, CS8 | PARENB | CRTSCTS, ""},
      {{9600, "none", 5, 0, "RTS", 1}, B9600, CS5 | CLOCAL, ""},  // RTS accepted, changes nothing
      {{230400, "none", 6, 3, "none", 0}, B0, CS6, "Warning: unknown baud rate: 230400\n"},
      {{50, "Even", 4, 1, "none", 0}, B0, CS8, "Warning: unknown baud rate: 50\nWarning: unknown parity: Even\n"},
      {{0, "none", 9, 1, "none", 0}, B0, CS8, ""},  // 0 is B0 itself
  };
  for (const Case& c : cases) {
    // Every opening must change the line: a pty refuses, as an invalid
    // request, settings whose only news are the parity or size it forces.
    ASSERT_EQ(tcsetattr(slave, TCSANOW, &cooked), 0);
    testing::internal::CaptureStderr();
    std::unique_ptr<TTy> tty = opentty(name, c.line);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Opened: " + std::string(name) + "\n" + c.warning);
    const struct termios& t = tty->attributes();
    EXPECT_EQ(cfgetospeed(&t), c.speed) << c.line.baud;
    EXPECT_EQ(t.c_cflag & lineBits, c.bits | CREAD | HUPCL) << c.line.baud;  // those two every time
    EXPECT_EQ(t.c_iflag & (INPCK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXON | IXANY | IXOFF | IMAXBEL | IGNBRK),
              static_cast<tcflag_t>(IGNBRK));
    EXPECT_EQ(t.c_oflag & (OPOST | ONLCR | OFILL | OFDEL | NLDLY | CRDLY | TABDLY | BSDLY | VTDLY | FFDLY),
              static_cast<tcflag_t>(OPOST | ONLCR));
    EXPECT_EQ(t.c_lflag & (ISIG | ICANON | ECHO | ECHOCTL | IEXTEN), 0u);
  }
  EXPECT_THROW(opentty(name, {9600, "none", 8, 1, "rtscts", 1}), oru::IOException);
}

TEST_F(PtyTest, ReadlineAndReadcharShareTheLookAhead) {
  TTy tty(name, open(name, O_RDWR | O_NOCTTY));  // adopts the descriptor
  char buf[64];
  // The count readline returned, and the line it left in buf.
  const auto line = [&](size_t size) { return std::to_string(tty.readline(buf, size)) + ":" + buf; };
  feed("ab\ncd\nef");
  EXPECT_EQ(line(sizeof buf), "3:ab\n");
  EXPECT_EQ(line(sizeof buf), "3:cd\n");  // from the look-ahead: a read of the port here would block
  feed("g\nhi");
  EXPECT_EQ(line(sizeof buf), "4:efg\n");
  EXPECT_EQ(tty.readchar(), 'h');  // "hi" was read ahead by readline
  EXPECT_EQ(tty.readchar(), 'i');
  feed("\xff" "z\n");
  EXPECT_EQ(tty.readchar(), -1);  // bytes above 0x7f come back negative
  EXPECT_EQ(line(sizeof buf), "2:z\n");
  EXPECT_EQ(line(1), "0:");
  feed("0123456789\n");  // a full buffer without a newline comes back as it is
  EXPECT_EQ(line(5), "4:0123");
  EXPECT_EQ(tty.read(buf, sizeof buf), 7);
}

TEST_F(PtyTest, FailuresNameTheDeviceAndOperation) {
  TTy closed(name);
  char c[2];
  std::pair<const char*, std::function<void()>> calls[] = {
      {"tcflush TCIFLUSH", [&] { closed.flushInput(); }},   {"tcflush TCOFLUSH", [&] { closed.flushOutput(); }},
      {"tcflush TCIOFLUSH", [&] { closed.flushBoth(); }},   {"tcsetattr TCSANOW", [&] { closed.setflags(); }},
      {"fcntl ~O_NONBLOCK", [&] { closed.setblocking(); }}, {"read", [&] { closed.read(c, 1); }},
      {"write", [&] { closed.write("x", 1); }},             {"read", [&] { closed.readline(c, 2); }},
      {"read", [&] { closed.readchar(); }},                 {"fstat", [&] { closed.LKfile(); }},
  };
  for (auto& call : calls) EXPECT_EQ(thrown(call.second), ioMessage(call.first, EBADF));
  EXPECT_EQ(thrown([] { TTy("/nonexistent/tty").open(O_RDWR); }), ioMessage("open", ENOENT, "/nonexistent/tty"));
  EXPECT_EQ(thrown([] { TTy("/dev/null").open(O_RDONLY); }), ioMessage("tcgetattr", ENOTTY, "/dev/null"));
  int notatty = open("/dev/null", O_RDONLY);
  EXPECT_EQ(thrown([&] { TTy("/dev/null", notatty); }), ioMessage("tcgetattr", ENOTTY, "/dev/null"));
  EXPECT_EQ(close(notatty), 0);  // a refused descriptor stays the caller's

  TTy tty(name, dup(slave));
  int bits, err = ioctl(slave, TIOCMGET, &bits) < 0 ? errno : 0;  // a pty has no modem lines
  ASSERT_NE(err, 0);
  EXPECT_EQ(thrown([&] { tty.carrier(); }), ioMessage("ioctl TIOCMGET", err));
}

TEST_F(PtyTest, ModemLinesInTheirOrder) {
  TTy tty(name, dup(slave));
  char text[128];
  struct Case { int word, carrier; const char* text; } cases[] = {
      {TIOCM_DTR | TIOCM_RTS | TIOCM_CTS | TIOCM_DSR, 0, "LE=OFF DTR=ON RTS=ON ST=OFF SR=OFF CTS=ON CD=OFF RNG=OFF DSR=ON "},
      {TIOCM_CD, 0, "LE=OFF DTR=OFF RTS=OFF ST=OFF SR=OFF CTS=OFF CD=ON RNG=OFF DSR=OFF "},  // not carrier()
      {TIOCM_LE | TIOCM_ST | TIOCM_SR | TIOCM_RNG, 1, "LE=ON DTR=OFF RTS=OFF ST=ON SR=ON CTS=OFF CD=OFF RNG=ON DSR=OFF "},
  };
  for (const Case& c : cases) {
    fakeModemWord = c.word;
    EXPECT_EQ(tty.carrier(), c.carrier);
    EXPECT_STREQ(tty.printmodem(text, sizeof text), c.text);
  }
  EXPECT_STREQ(tty.printmodem(text, 10), "LE=ON DTR");
  fakeModemWord = -1;
}
