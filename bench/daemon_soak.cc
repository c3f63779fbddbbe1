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
}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s SERIAL_INGEST STANDIN_DIR [kills] [ports]\n", argv[0]);
    return 2;
  }
  const int kills = argc > 3 ? atoi(argv[3]) : 500;
  const int ports = argc > 4 ? atoi(argv[4]) : 4;
  char tmpl[] = "/tmp/daemonsoakXXXXXX";
  if (!mkdtemp(tmpl)) return perror("mkdtemp"), 1;
  const std::string dir = tmpl;
  mkdir((dir + "/reports").c_str(), 0755);
  std::ostringstream table;
  std::vector<int> fds;
  for (int i = 0; i < ports; ++i) {
    int m, s;
    char name[64];
    if (openpty(&m, &s, name, nullptr, nullptr) < 0) return perror("openpty"), 1;
    fcntl(m, F_SETFD, FD_CLOEXEC);
    fcntl(s, F_SETFD, FD_CLOEXEC);
    fds.push_back(m);
    fds.push_back(s);
    table << "port" << i << " - " << name << " 9600 none 8 1 none local\n";
  }
  std::ofstream(dir + "/ingest.conf") << table.str();

  prctl(PR_SET_CHILD_SUBREAPER, 1);
  pid_t starter = fork();
  if (starter == 0) {
    std::string path = std::string(argv[2]) + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
    setenv("INGEST_STANDIN_DIR", (dir + "/reports").c_str(), 1);
    setenv("CONFIG_SERVER", "127.0.0.1", 1);
    execl(argv[1], argv[1], "-z", "-c", (dir + "/ingest.conf").c_str(), (char*)nullptr);
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
  if (!daemon) return fprintf(stderr, "supervisor not found\n"), 1;
  if (!waitFor(30, [&] { return static_cast<int>(liveChildren(daemon).size()) == ports; }))
    return fprintf(stderr, "children did not start\n"), 1;
  const int fdsBefore = openDescriptors(daemon);
  const long rssBefore = residentKiB(daemon);

  int restarts = 0;
  const double t0 = now();
  for (int k = 0; k < kills; ++k) {
    std::set<int> before = liveChildren(daemon);
    int victim = *before.begin();
    kill(victim, SIGKILL);
    bool back = waitFor(30, [&] {
      std::set<int> live = liveChildren(daemon);
      return static_cast<int>(live.size()) == ports && !live.count(victim);
    });
    if (!back) {
      fprintf(stderr, "no restart after kill %d\n", k + 1);
      break;
    }
    ++restarts;
  }
  const double elapsed = now() - t0;
  usleep(500000);
  int zombies = 0;
  for (int c : childrenOf(daemon))
    if (stateOf(c) == 'Z') ++zombies;
  const int fdsAfter = openDescriptors(daemon);
  const long rssAfter = residentKiB(daemon);

  printf("kills %d, restarts counted %d, in %.0f s (%.2f s per restart)\n", kills, restarts, elapsed,
         restarts ? elapsed / restarts : 0.0);
  printf("zombies left %d\n", zombies);
  printf("supervisor descriptors before %d after %d\n", fdsBefore, fdsAfter);
  printf("supervisor resident memory before %ld KiB after %ld KiB\n", rssBefore, rssAfter);

  std::vector<int> left = childrenOf(daemon);
  kill(daemon, SIGINT);
  waitpid(daemon, nullptr, 0);
  for (int c : left) kill(c, SIGKILL);
  while (waitpid(-1, nullptr, 0) > 0) {
  }
  for (int fd : fds) close(fd);
  system(("rm -rf " + dir).c_str());
  return restarts == kills && zombies == 0 && fdsAfter == fdsBefore ? 0 : 1;
}
