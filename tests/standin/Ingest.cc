// A stand-in for the acquisition program that serial_ingest's daemon mode
// starts for each port.  It writes what it was given to a report file in
// $INGEST_STANDIN_DIR and then waits to be killed:
//
//   argv: <station> <descriptor> <device>
//   report "<station>.<pid>": one "key=value" per line, written as
//   ".<station>.<pid>" and renamed when whole
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <string>

int main(int argc, char** argv) {
  const char* dir = getenv("INGEST_STANDIN_DIR");
  if (!dir || argc != 3) return 2;
  int fd = atoi(argv[1]);
  // The inherited descriptor must be the configured port itself.
  struct stat byFd, byName;
  bool samePort = fstat(fd, &byFd) == 0 && stat(argv[2], &byName) == 0 && S_ISCHR(byFd.st_mode) &&
                  byFd.st_rdev == byName.st_rdev;
  struct termios t;
  int vmin = tcgetattr(fd, &t) == 0 ? t.c_cc[VMIN] : -1;
  uid_t r, e, s;
  getresuid(&r, &e, &s);
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  struct stat in, null;
  bool stdinNull = fstat(0, &in) == 0 && stat("/dev/null", &null) == 0 && in.st_rdev == null.st_rdev;

  std::string name = std::string(argv[0]) + "." + std::to_string(getpid());
  std::string path = std::string(dir) + "/" + name, tmp = std::string(dir) + "/." + name;
  FILE* f = fopen(tmp.c_str(), "w");
  if (!f) return 3;
  auto env = [](const char* name) { return getenv(name) ? getenv(name) : "(unset)"; };
  fprintf(f, "station=%s\ndevice=%s\nsame_port=%d\nvmin=%d\nuids=%d %d %d\n", argv[0], argv[2],
          samePort, vmin, (int)r, (int)e, (int)s);
  fprintf(f, "INGEST_SERVER=%s\nPROJECT=%s\nOPS=%s\n", env("INGEST_SERVER"), env("PROJECT"), env("OPS"));
  fprintf(f, "sigint_blocked=%d\nparent=%d\nsession=%d\nstdin_null=%d\n", sigismember(&mask, SIGINT),
          (int)getppid(), (int)getsid(0), stdinNull);
  fclose(f);
  rename(tmp.c_str(), path.c_str());  // the report appears whole
  for (;;) pause();
}
