// Soak test of the daemon's supervision: starts serial_ingest -z on a few
// pseudo-terminal ports with the stand-in "Ingest", kills its children many
// times, and reports restarts, zombies left, and the supervisor's open
// descriptors and resident memory before and after.
//
//   daemon_soak SERIAL_INGEST STANDIN_DIR [kills=500] [ports=4]
#include <dirent.h>
#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {
double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

std::vector<int> childrenOf(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/children");
  std::vector<int> out;
  int c;
  while (in >> c) out.push_back(c);
  return out;
}

char stateOf(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(in, line);
  size_t close = line.rfind(')');
  return close == std::string::npos || close + 2 >= line.size() ? '?' : line[close + 2];
}

int openDescriptors(int pid) {
  DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
  if (!d) return -1;
  int n = 0;
  while (struct dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n;
}

long residentKiB(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
  return -1;
}

// Live (not zombie) children of the supervisor.
std::set<int> liveChildren(int daemon) {
  std::set<int> out;
  for (int c : childrenOf(daemon))
    if (stateOf(c) != 'Z') out.insert(c);
  return out;
}

bool waitFor(double seconds, const std::function<bool()>& done) {
  double end = now() + seconds;
  while (now() < end) {
    if (done()) return true;
    usleep(20000);
  }
  return done();
}
// What the soak finds.
struct Figures {
  int kills = 0, ports = 0, restarts = 0, zombies = 0, fdsBefore = 0, fdsAfter = 0;
  double elapsed = 0;
  long rssBefore = 0, rssAfter = 0;
};

// The port table in dir: a pseudo-terminal per port, whose descriptors go
// to fds; false, reported, when one cannot be opened.
bool writePorts(const std::string& dir, int ports, std::vector<int>* fds) {
  std::ostringstream table;
  for (int i = 0; i < ports; ++i) {
    int m, s;
    char name[64];
    if (openpty(&m, &s, name, nullptr, nullptr) < 0) return perror("openpty"), false;
    fcntl(m, F_SETFD, FD_CLOEXEC);
    fcntl(s, F_SETFD, FD_CLOEXEC);
    fds->push_back(m);
    fds->push_back(s);
    table << "port" << i << " - " << name << " 9600 none 8 1 none local\n";
  }
  std::ofstream(dir + "/ingest.conf") << table.str();
  return true;
}

// Starts the daemon (serialIngest, finding the stand-in in standinDir);
// returns its supervisor, or 0 when it cannot be found.
int startSupervisor(const char* serialIngest, const char* standinDir, const std::string& dir) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  pid_t starter = fork();
  if (starter == 0) {
    std::string path = std::string(standinDir) + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
    setenv("INGEST_STANDIN_DIR", (dir + "/reports").c_str(), 1);
    setenv("CONFIG_SERVER", "127.0.0.1", 1);
    execl(serialIngest, serialIngest, "-z", "-c", (dir + "/ingest.conf").c_str(), (char*)nullptr);
    _exit(127);
  }
  waitpid(starter, nullptr, 0);
  // The supervisor is the one orphan that comes to us.
  int daemon = 0;
  waitFor(10, [&] {
    for (int c : childrenOf(getpid()))
      if (c != starter) daemon = c;
    return daemon != 0;
  });
  return daemon;
}

// Kills a child of daemon f->kills times, each time waiting for its
// restart; counts the restarts and their time.
void killChildren(int daemon, Figures* f) {
  const double t0 = now();
  for (int k = 0; k < f->kills; ++k) {
    std::set<int> before = liveChildren(daemon);
    int victim = *before.begin();
    kill(victim, SIGKILL);
    bool back = waitFor(30, [&] {
      std::set<int> live = liveChildren(daemon);
      return static_cast<int>(live.size()) == f->ports && !live.count(victim);
    });
    if (!back) {
      fprintf(stderr, "no restart after kill %d\n", k + 1);
      break;
    }
    ++f->restarts;
  }
  f->elapsed = now() - t0;
}

// The figures, on standard output.
void report(const Figures& f) {
  printf("kills %d, restarts counted %d, in %.0f s (%.2f s per restart)\n", f.kills, f.restarts, f.elapsed,
         f.restarts ? f.elapsed / f.restarts : 0.0);
  printf("zombies left %d\n", f.zombies);
  printf("supervisor descriptors before %d after %d\n", f.fdsBefore, f.fdsAfter);
  printf("supervisor resident memory before %ld KiB after %ld KiB\n", f.rssBefore, f.rssAfter);
}

// Stops the daemon and its children, and removes dir.
void stopAll(int daemon, const std::vector<int>& fds, const std::string& dir) {
  std::vector<int> left = childrenOf(daemon);
  kill(daemon, SIGINT);
  waitpid(daemon, nullptr, 0);
  for (int c : left) kill(c, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0) {
  }
  for (int fd : fds) close(fd);
  system(("rm -rf " + dir).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s SERIAL_INGEST STANDIN_DIR [kills] [ports]\n", argv[0]);
    return 2;
  }
  Figures f;
  f.kills = argc > 3 ? atoi(argv[3]) : 500;
  f.ports = argc > 4 ? atoi(argv[4]) : 4;
  char tmpl[] = "/tmp/daemonsoakXXXXXX";
  if (!mkdtemp(tmpl)) return perror("mkdtemp"), 1;
  const std::string dir = tmpl;
  mkdir((dir + "/reports").c_str(), 0755);
  std::vector<int> fds;
  if (!writePorts(dir, f.ports, &fds)) return 1;
  const int daemon = startSupervisor(argv[1], argv[2], dir);
  if (!daemon) return fprintf(stderr, "supervisor not found\n"), 1;
  if (!waitFor(30, [&] { return static_cast<int>(liveChildren(daemon).size()) == f.ports; }))
    return fprintf(stderr, "children did not start\n"), 1;
  f.fdsBefore = openDescriptors(daemon);
  f.rssBefore = residentKiB(daemon);

  killChildren(daemon, &f);
  usleep(500000);
  for (int c : childrenOf(daemon))
    if (stateOf(c) == 'Z') ++f.zombies;
  f.fdsAfter = openDescriptors(daemon);
  f.rssAfter = residentKiB(daemon);
  report(f);
  stopAll(daemon, fds, dir);
  return f.restarts == f.kills && f.zombies == 0 && f.fdsAfter == f.fdsBefore ? 0 : 1;
}
