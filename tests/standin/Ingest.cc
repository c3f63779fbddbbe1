// A stand-in for the acquisition program that serial_ingest's daemon mode
// starts for each port.  It writes what it was given to a report file in
// $INGEST_STANDIN_DIR and then waits to be killed, or ends at once when it
// is the station named by $INGEST_STANDIN_EXIT:
//
//   argv: <station> <descriptor> <device>
//   report "<station>.<pid>": one "key=value" per line, written as
//   ".<station>.<pid>" and renamed when whole
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
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
  // Standard streams as n(ull), c(onsole) or o(ther); descriptors beyond
  // them and the port are counted.
  struct stat st, null, console = {};
  stat("/dev/null", &null);
  stat("/dev/console", &console);
  std::string std;
  int extra = 0;
  for (int i = 0; i < 1024; ++i) {
    bool open = fstat(i, &st) == 0;
    if (i < 3) std += !open ? 'o' : st.st_rdev == null.st_rdev ? 'n' : st.st_rdev == console.st_rdev ? 'c' : 'o';
    else extra += open && i != fd;
  }
  char exe[256] = "";
  readlink("/proc/self/exe", exe, sizeof exe - 1);

  std::string name = std::string(argv[0]) + "." + std::to_string(getpid());
  std::string path = std::string(dir) + "/" + name, tmp = std::string(dir) + "/." + name;
  FILE* f = fopen(tmp.c_str(), "w");
  if (!f) return 3;
  auto env = [](const char* name) { return getenv(name) ? getenv(name) : "(unset)"; };
  fprintf(f, "station=%s\ndevice=%s\nsame_port=%d\nvmin=%d\nuids=%d %d %d\n", argv[0], argv[2],
          samePort, vmin, (int)r, (int)e, (int)s);
  fprintf(f, "INGEST_SERVER=%s\nPROJECT=%s\nOPS=%s\n", env("INGEST_SERVER"), env("PROJECT"), env("OPS"));
  fprintf(f, "sigint_blocked=%d\nparent=%d\nsession=%d\nstd=%s\nextra_fds=%d\nexe=%s\nnice=%d\n",
          sigismember(&mask, SIGINT), (int)getppid(), (int)getsid(0), std.c_str(), extra, exe,
          getpriority(PRIO_PROCESS, 0));
  fclose(f);
  rename(tmp.c_str(), path.c_str());  // the report appears whole
  if (getenv("INGEST_STANDIN_EXIT") && strcmp(getenv("INGEST_STANDIN_EXIT"), argv[0]) == 0) return 0;
  for (;;) pause();
}
