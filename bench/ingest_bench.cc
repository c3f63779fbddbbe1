// Load figures of Ingest: N ports fed at the full line rate of 230400 baud
// (1000 samples of 20 bytes a second each), C live stream clients per port
// and one more client on port 0 that never reads.  Reports the CPU each
// Ingest takes, the delay from a sample's last byte written to the port to
// its arrival at a client (median and 99th percentile), and the peak
// resident memory of the port with the stalled client beside another's.
// Needs a running rpcbind; the site is a scratch folder, removed at the end.
//
//   ingest_bench INGEST [ports=16] [clients=4] [seconds=10]
#include <arpa/inet.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "registered.h"
#include "rpc/ingest_client.h"

namespace {

long long monoNanos() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

// utime + stime of pid, in clock ticks.
long long cpuTicks(pid_t pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
  std::string field;
  long long sum = 0;
  for (int i = 1; i <= 15 && f >> field; ++i)
    if (i >= 14) sum += atoll(field.c_str());
  return sum;
}

long peakKiB(pid_t pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(f, line);)
    if (line.compare(0, 7, "VmHWM:\t") == 0) return atol(line.c_str() + 7);
  return -1;
}

struct Port {
  int master = -1;
  pid_t pid = -1;
  int number = 0;
  std::string station;
};

// The site in root: its folders, the environment naming it, and a station
// with its own port number and archive for each port.
void makeSite(const char* root, std::vector<Port>& ports) {
  const std::string ops = std::string(root) + "/projects/b/o";
  for (const std::string& d : {std::string(root) + "/config", std::string(root) + "/projects", std::string(root) + "/projects/b", ops, std::string(root) + "/raw"})
    mkdir(d.c_str(), 0755);
  setenv("HERON", root, 1);
  setenv("PROJECT", "b", 1);
  setenv("OPS", "o", 1);
  std::ofstream kites(std::string(root) + "/config/kites_config"), archives(ops + "/archive_config");
  std::ofstream(ops + "/channel_config") << "timetag msecs ;\n";
  archives << "directory \"" << root << "/raw\" ;\n";
  for (size_t i = 0; i < ports.size(); ++i) {
    Port& p = ports[i];
    p.station = "bench" + std::to_string(i);
    p.number = 4000 + static_cast<int>(getpid() % 1000) * 32 + static_cast<int>(i);
    kites << "kites_number " << p.station << " " << p.number << "\n";
    archives << "archive " << p.station << " \"" << p.station << "_%Y%m%d_%H%M%S.raw\" 3600 ;\n";
  }
}

// Runs ingest on a pseudo-terminal for each port and waits until each has
// registered; false, reported, when a terminal cannot be opened.
bool startPorts(const char* ingest, std::vector<Port>& ports) {
  for (Port& p : ports) {
    int slave;
    char name[64];
    struct termios raw;
    if (openpty(&p.master, &slave, name, nullptr, nullptr) != 0 || tcgetattr(slave, &raw) != 0) return perror("openpty"), false;
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    p.pid = fork();
    if (p.pid == 0) {
      const std::string fd = std::to_string(slave);
      execl(ingest, p.station.c_str(), fd.c_str(), name, static_cast<char*>(nullptr));
      _exit(127);
    }
    close(slave);
  }
  for (Port& p : ports)
    for (int k = 0; k < 100 && !registered(static_cast<rpcprog_t>(INGEST_PROG + p.number)); ++k) usleep(50000);
  return true;
}

// Connects nclients live clients to each port, and one more to port 0
// (*stalled, never read); false, reported, when one cannot connect.
bool connectClients(std::vector<Port>& ports, int nclients, std::vector<struct pollfd>* fds, int* stalled) {
  uint32_t all[8];
  memset(all, 0xff, sizeof all);
  for (Port& p : ports)
    for (int c = 0; c < nclients + (&p == &ports[0]); ++c) {
      int err;
      ingest_connect* ic = call_ingest_server(p.station.c_str(), p.number, "127.0.0.1", all, 0, &err);
      if (!ic) return ingest_perror(p.station.c_str(), "127.0.0.1", err), false;
      if (c == nclients) *stalled = ic->socketfd;  // never read
      else fds->push_back({ic->socketfd, POLLIN, 0});
      free_ingest_connect(ic);
    }
  return true;
}

// One sample per port each millisecond until done: header, the write time,
// padding, and the end-of-message byte.
void feedPorts(const std::vector<Port>& ports, const std::atomic<bool>& done) {
  struct timespec next;
  clock_gettime(CLOCK_MONOTONIC, &next);
  char buf[21] = {};
  buf[4] = 1;
  buf[5] = 14;
  buf[20] = 3;
  while (!done) {
    struct timespec wall;
    clock_gettime(CLOCK_REALTIME, &wall);
    const uint32_t tt = htonl(static_cast<uint32_t>(wall.tv_sec % 86400 * 1000 + wall.tv_nsec / 1000000));
    memcpy(buf, &tt, 4);
    for (const Port& p : ports) {
      const long long t = monoNanos();
      memcpy(buf + 6, &t, sizeof t);
      if (write(p.master, buf, sizeof buf) != sizeof buf) perror("write");
    }
    next.tv_nsec += 1000000;
    if (next.tv_nsec >= 1000000000) next.tv_sec += 1, next.tv_nsec -= 1000000000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
  }
}

// Reads what client fd has; the delay of each whole sample received after
// warm goes to delays.
void takeSamples(int fd, std::string& pending, long long warm, std::vector<long long>* delays) {
  char buf[8192];
  ssize_t n = read(fd, buf, sizeof buf);
  if (n <= 0) return;
  const long long got = monoNanos();
  pending.append(buf, static_cast<size_t>(n));
  size_t at = 0;
  for (; at + 20 <= pending.size(); at += 20) {
    long long sent;
    memcpy(&sent, pending.data() + at + 6, sizeof sent);
    if (got >= warm) delays->push_back(got - sent);
  }
  pending.erase(0, at);
}

// Reads the clients for two seconds of warm-up and seconds more; returns
// the delays, and in cpu the CPU each port took after the warm-up, in per
// cent of a core.
std::vector<long long> measure(std::vector<struct pollfd>& fds, const std::vector<Port>& ports, int seconds,
                               std::vector<double>* cpu) {
  std::vector<long long> delays;
  std::vector<std::string> pending(fds.size());
  const long long warm = monoNanos() + 2000000000LL, end = warm + seconds * 1000000000LL;
  std::vector<long long> cpu0;
  for (long long now = monoNanos(); now < end; now = monoNanos()) {
    if (cpu0.empty() && now >= warm)
      for (const Port& p : ports) cpu0.push_back(cpuTicks(p.pid));
    if (poll(fds.data(), fds.size(), 100) < 0) break;
    for (size_t i = 0; i < fds.size(); ++i)
      if (fds[i].revents & POLLIN) takeSamples(fds[i].fd, pending[i], warm, &delays);
  }
  for (size_t i = 0; i < ports.size(); ++i)
    cpu->push_back(100.0 * static_cast<double>(cpuTicks(ports[i].pid) - cpu0[i]) / sysconf(_SC_CLK_TCK) / seconds);
  return delays;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s INGEST [ports=16] [clients=4] [seconds=10]\n", argv[0]);
    return 2;
  }
  const int nports = argc > 2 ? atoi(argv[2]) : 16, nclients = argc > 3 ? atoi(argv[3]) : 4;
  const int seconds = argc > 4 ? atoi(argv[4]) : 10;
  char root[] = "/tmp/ingest-bench-XXXXXX";
  if (!mkdtemp(root)) return perror("mkdtemp"), 1;
  std::vector<Port> ports(static_cast<size_t>(nports));
  makeSite(root, ports);
  signal(SIGPIPE, SIG_IGN);
  if (!startPorts(argv[1], ports)) return 1;
  std::vector<struct pollfd> fds;
  int stalled = -1;
  if (!connectClients(ports, nclients, &fds, &stalled)) return 1;

  std::atomic<bool> done(false);
  std::thread writer(feedPorts, std::cref(ports), std::cref(done));
  std::vector<double> cpu;
  std::vector<long long> delays = measure(fds, ports, seconds, &cpu);
  done = true;
  writer.join();
  std::sort(delays.begin(), delays.end());
  std::sort(cpu.begin(), cpu.end());
  printf("%d ports x %d clients, %d s: CPU per port median %.2f%% max %.2f%% of a core\n", nports, nclients, seconds,
         cpu[cpu.size() / 2], cpu.back());
  if (!delays.empty())
    printf("delay port -> client: median %.3f ms, 99th percentile %.3f ms (%zu samples)\n",
           delays[delays.size() / 2] / 1e6, delays[delays.size() * 99 / 100] / 1e6, delays.size());
  printf("peak resident memory: %ld KiB with a stalled client, %ld KiB without\n", peakKiB(ports[0].pid),
         nports > 1 ? peakKiB(ports[1].pid) : -1L);
  for (Port& p : ports) kill(p.pid, SIGTERM);
  for (Port& p : ports) waitpid(p.pid, nullptr, 0);
  close(stalled);
  return system((std::string("rm -rf ") + root).c_str()) == 0 ? 0 : 1;
}
