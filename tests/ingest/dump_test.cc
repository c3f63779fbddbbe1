// The debugging dumps end to end: serial_ingest reads a pseudo-terminal that
// this test writes to; what it prints (standard error folded in) is
// compared byte for byte.
#include <gtest/gtest.h>

#include <ctype.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {
// The expected dumps, written independently of the program with printf.
std::string expectedDump(const std::string& bytes, bool hex) {
  std::string out;
  char item[32];
  for (size_t i = 0; i < bytes.size(); ++i) {
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    if (i % 16 == 0) out.append(item, snprintf(item, sizeof item, "%07zu", i));
    if (hex)
      snprintf(item, sizeof item, i % 2 ? "%.2x" : " %.2x", b);
    else if (b == 0)
      snprintf(item, sizeof item, "  \\0");
    else
      snprintf(item, sizeof item, isprint(b) ? "   %c" : " %.3o", b);
    out += item;
    if (i % 16 == 15) out += '\n';
  }
  return out;
}
}  // namespace

TEST(Dump, EveryByteInItsFormEachReadPrintedAtOnce) {
  std::string bytes("A\0\x7f", 3);
  for (int i = 3; i < 300; ++i) bytes += static_cast<char>((i * 37 + 11) & 0xff);
  for (bool hex : {true, false}) {
    int master, slave;
    char name[64];
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    for (int fd : {master, slave}) fcntl(fd, F_SETFD, FD_CLOEXEC);  // or hanging up would not reach the port
    FILE* out = popen((std::string(SERIAL_INGEST_BIN) + (hex ? " -H" : " -O") + " -L -d " + name + " 2>&1").c_str(), "r");
    struct termios t;  // ready once serial_ingest has put its 128-byte reads in place
    for (int i = 0; i < 500 && !(tcgetattr(slave, &t) == 0 && t.c_cc[VMIN] == 128); ++i) usleep(10000);
    const std::string want = "Opened: " + std::string(name) + "\n" + expectedDump(bytes, hex) + "EOFException: " +
                             name + ": read: \n";
    // A read returns once 128 bytes are there, so 136 bytes end the first read
    // in the middle of line 9 or leave those 8 bytes for the next read; either
    // way the first 8 lines must be out before any more bytes arrive.
    EXPECT_EQ(write(master, bytes.data(), 136), 136);
    std::string got;
    char line[256];
    setvbuf(out, nullptr, _IONBF, 0);  // so that poll sees every byte not yet taken
    struct pollfd p = {fileno(out), POLLIN, 0};
    for (int k = 0; k < 9 && poll(&p, 1, 5000) > 0 && fgets(line, sizeof line, out); ++k) got += line;
    size_t nine = 0;  // the "Opened:" line and 8 lines of dump
    for (int k = 0; k < 9; ++k) nine = want.find('\n', nine) + 1;
    EXPECT_EQ(got.substr(0, nine), want.substr(0, nine)) << hex;
    EXPECT_EQ(write(master, bytes.data() + 136, bytes.size() - 136), static_cast<ssize_t>(bytes.size() - 136));
    usleep(100000);  // a hang-up discards what the line has not yet taken in
    close(slave);
    close(master);
    while (fgets(line, sizeof line, out)) got += line;
    EXPECT_EQ(got, want) << hex;
    EXPECT_EQ(pclose(out), 1 << 8);  // exit status 1
  }
}
