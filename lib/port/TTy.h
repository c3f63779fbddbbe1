// One serial device: opening, the usual line settings, the terminal attribute
// words for callers that want raw mode, reads through a look-ahead buffer
// shared by readline and readchar, writes, flushes and the modem lines.
// Every failing system call raises oru::IOException("<device>", "<operation>",
// errno); the object stays usable afterwards.
#ifndef HERON_TTY_H
#define HERON_TTY_H

#include <termios.h>

#include <string>
#include <vector>

class TTy {
 public:
  // Names the device; nothing is opened.
  explicit TTy(const char* name);
  // Adopts an open descriptor and reads its attributes ("tcgetattr").
  TTy(const char* name, int fd);
  ~TTy();

  TTy(const TTy&) = delete;
  TTy& operator=(const TTy&) = delete;

  // open(2) with mode, then reads the attributes into the working copy.
  int open(int mode);
  // open(mode) followed by set_usual(...).
  int open(int mode, int baud, const char* parity, int charsize, int stopb, int local);

  const char* getName() const { return _name.c_str(); }
  int fd() const { return _fd; }

  // Speed, parity, character size, stop bits, CREAD and CLOCAL in the control
  // word, then writes the working copy to the device.  Unknown rates and
  // parities are warned about through logit and replaced.
  void set_usual(int baud, const char* parity, int charsize, int stopb, int local);

  // The working copy's words; changes reach the device at setflags().
  tcflag_t& iflag() { return _tio.c_iflag; }
  tcflag_t& oflag() { return _tio.c_oflag; }
  tcflag_t& cflag() { return _tio.c_cflag; }
  tcflag_t& lflag() { return _tio.c_lflag; }
  cc_t* cc() { return _tio.c_cc; }
  const struct termios& attributes() const { return _tio; }
  void setflags();

  // Clears O_NONBLOCK; returns the file-status flags as they were.
  int setblocking();

  int getmodem();
  // The line-enable bit of the modem word (not carrier detect).
  int carrier();
  // "LE=OFF DTR=ON ..." into s, at most len bytes, always NUL-terminated.
  char* printmodem(char* s, int len);

  void flushInput();
  void flushOutput();
  void flushBoth();

  // One read(2) from the descriptor; the look-ahead is not consulted.
  int read(char* buf, int len);
  // One write(2); partial writes are returned, not retried.
  int write(const char* buf, int len);
  // One line of at most len-1 bytes, newline included, NUL-terminated.
  int readline(char* buf, int len);
  // Next byte as a signed char; 0 at end of file.
  int readchar();

  // Lock files are not used on these machines: LKfile checks the descriptor
  // and names no file, and the lock operations do nothing.
  const char* LKfile();
  int LKfileExists();
  int lock() { return -1; }
  int unlock() { return -1; }
  int wholock() { return -1; }

 private:
  [[noreturn]] void fail(const char* operation) const;

  struct termios _tio;
  int _fd;
  char* _savep;                // next unread look-ahead byte in _savebuf
  std::vector<char> _savebuf;  // sized 512 by readchar, grown by readline
  int _savelen;                // unread look-ahead bytes at _savep
  std::string _name;
};

#endif
