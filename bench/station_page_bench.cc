// Load figures of station_page: N stations, each an Ingest on a
// pseudo-terminal fed ten samples a second, and V viewers polling the page
// as its script does (the status document every refresh period, every
// station's plot once a minute).  Reports, over the measured span, the CPU
// station_page takes itself and the CPU of the cal_dump runs that draw its
// plots, each in per cent of a core; its resident memory at the start and
// at the end; and, measured in the same run for reference, the CPU of
// ingest_status --json run once per refresh period.
// Needs a running rpcbind (scripts/private-net.sh gives one); the site is a
// scratch folder, removed at the end.
//
//   station_page_bench INGEST STATION_PAGE CAL_DUMP INGEST_STATUS
//                      [stations=16] [viewers=4] [seconds=180]
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "registered.h"
#include "rpc/ingest_client.h"

namespace {

const int kRefresh = 5, kPlotPeriod = 60;  // the page's own periods, in seconds

double monoSeconds() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9;
}

// Seconds of CPU from /proc/PID/stat: the process's own (utime + stime), or
// with children, that of its children it has waited for (cutime + cstime).
double cpuSeconds(pid_t pid, bool children) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(f, line);
  std::vector<std::string> fields;
  std::string field;
  for (std::istringstream words(line.substr(line.rfind(')') + 2)); words >> field;) fields.push_back(field);
  if (fields.size() < 15) return 0;
  const size_t at = children ? 13 : 11;  // utime is field 14 of the line, 12 after the name
  return (atof(fields[at].c_str()) + atof(fields[at + 1].c_str())) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long rssKiB(pid_t pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(f, line);)
    if (line.compare(0, 7, "VmRSS:\t") == 0) return atol(line.c_str() + 7);
  return -1;
}

// The site in root, each station with its port, program number, archive
// and a sensor of two variables on channel 200.
void makeSite(const std::string& root, const std::vector<std::string>& stations, const std::vector<std::string>& ttys,
              int first) {
  const std::string ops = root + "/projects/b/o";
  for (const std::string& d : {root + "/config", root + "/projects", root + "/projects/b", ops, root + "/raw"})
    mkdir(d.c_str(), 0755);
  setenv("HERON", root.c_str(), 1);
  setenv("PROJECT", "b", 1);
  setenv("OPS", "o", 1);
  std::ofstream kites(root + "/config/kites_config"), archives(ops + "/archive_config"), table(ops + "/ingest.conf"),
      prep(ops + "/prep.config"), ids(ops + "/did.config");
  std::ofstream(ops + "/channel_config") << "timetag msecs ;\n";
  archives << "directory \"" << root << "/raw\" ;\n";
  for (size_t i = 0; i < stations.size(); ++i) {
    const std::string& s = stations[i];
    kites << "kites_number " << s << " " << first + static_cast<int>(i) << "\n";
    archives << "archive " << s << " \"" << s << "_%Y%m%d_%H%M%S.raw\" 3600 ;\n";
    table << s << " - " << ttys[i] << " 230400 none 8 1 none local\n";
    prep << "sensor s" << i << " { module " << s << " 200 ; outputs x y ; calibrate serial_short \"big\" ; }\n";
    ids << "x.s" << i << " " << 2 * i + 1 << " ; y.s" << i << " " << 2 * i + 2 << " ;\n";
  }
}

// Runs argv with standard error to *err (when given) and the rest to
// /dev/null; its pid.
pid_t spawn(const std::vector<std::string>& args, int* err) {
  int p[2] = {-1, -1};
  if (err != nullptr && pipe(p) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, 0), dup2(null, 1), dup2(err != nullptr ? p[1] : null, 2);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }
  if (err != nullptr) close(p[1]), *err = p[0];
  return pid;
}

// One GET on 127.0.0.1:port, its reply read whole; whether it was 200.
bool get(unsigned short port, const std::string& path) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  struct sockaddr_in to = {};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::string req = "GET " + path + " HTTP/1.1\r\nHost: b\r\nConnection: close\r\n\r\n";
  std::string reply;
  char buf[16384];
  if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0 &&
      write(fd, req.data(), req.size()) == static_cast<ssize_t>(req.size()))
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) reply.append(buf, static_cast<size_t>(n));
  close(fd);
  return reply.compare(0, 12, "HTTP/1.1 200") == 0;
}

// A viewer: the status every refresh period, every plot once a minute.
void view(unsigned short port, const std::vector<std::string>& stations, double end, std::atomic<int>* failed) {
  *failed += !get(port, "/");
  for (double next = monoSeconds(), plots = next; next < end; next += kRefresh) {
    *failed += !get(port, "/status.json");
    if (monoSeconds() >= plots) {
      for (const auto& s : stations) *failed += !get(port, "/plot/" + s + ".png");
      plots += kPlotPeriod;
    }
    const double pause = next + kRefresh - monoSeconds();
    if (pause > 0) usleep(static_cast<useconds_t>(pause * 1e6));
  }
}

// Pseudo-terminals in raw mode, one per station; the masters and the slave
// names into *masters and *ttys; the slaves' descriptors are returned.
std::vector<int> openPorts(int n, std::vector<int>* masters, std::vector<std::string>* ttys) {
  std::vector<int> slaves;
  for (int i = 0; i < n; ++i) {
    int master, slave;
    char name[64];
    struct termios raw;
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0 || tcgetattr(slave, &raw) != 0) {
      perror("openpty");
      exit(1);
    }
    cfmakeraw(&raw);
    tcsetattr(slave, TCSANOW, &raw);
    masters->push_back(master);
    ttys->push_back(name);
    slaves.push_back(slave);
  }
  return slaves;
}

// Ingest on each port, as serial_ingest starts it; waits until each has
// registered.
std::vector<pid_t> startIngests(const char* ingest, const std::vector<std::string>& stations,
                                const std::vector<std::string>& ttys, const std::vector<int>& slaves, int first) {
  std::vector<pid_t> pids;
  for (size_t i = 0; i < stations.size(); ++i) {
    if ((pids.emplace_back(fork())) == 0) {
      execl(ingest, stations[i].c_str(), std::to_string(slaves[i]).c_str(), ttys[i].c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    close(slaves[i]);
  }
  for (size_t i = 0; i < stations.size(); ++i)
    for (int k = 0; k < 100 && !registered(static_cast<rpcprog_t>(INGEST_PROG + first + static_cast<int>(i))); ++k)
      usleep(50000);
  return pids;
}

// Ten samples a second on each port until done: a tag and two shorts on
// channel 200.
void feed(const std::vector<int>& masters, const std::atomic<bool>& done) {
  for (uint16_t n = 0; !done; ++n, usleep(100000)) {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    const uint32_t tt = htonl(static_cast<uint32_t>(ts.tv_sec % 86400 * 1000 + ts.tv_nsec / 1000000));
    const uint16_t count = htons(n);
    char s[11] = {0, 0, 0, 0, '\xc8', 4, 0, 0, 0, 0, 3};
    memcpy(s, &tt, 4);
    memcpy(s + 8, &count, 2);
    for (int fd : masters)
      if (write(fd, s, sizeof s) != sizeof s) perror("write");
  }
}

// station_page on a port of its choosing; that port, 0 when it did not start.
unsigned short startPage(const char* program, const char* calDump, pid_t* pid) {
  int log = -1;
  *pid = spawn({program, "-p", "0", "-r", std::to_string(kRefresh), "--cal-dump", calDump}, &log);
  std::string text;
  char buf[512];
  for (ssize_t n; text.find("listening on") == std::string::npos && (n = read(log, buf, sizeof buf)) > 0;)
    text.append(buf, static_cast<size_t>(n));
  const size_t colon = text.find(':', text.find("listening on"));
  if (colon == std::string::npos) fprintf(stderr, "station_page did not start: %s\n", text.c_str());
  return static_cast<unsigned short>(colon == std::string::npos ? 0 : atoi(text.c_str() + colon + 1));
}

double childSeconds() {
  struct rusage r;
  getrusage(RUSAGE_CHILDREN, &r);
  return static_cast<double>(r.ru_utime.tv_sec + r.ru_stime.tv_sec) + (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
}

// The viewers for `seconds`, and beside them ingest_status --json once per
// refresh period; the figures.  Only the ingest_status runs are waited for
// within the span, so this process's children's CPU is theirs.
void measure(unsigned short port, pid_t page, const std::vector<std::string>& stations, int nviewers, int seconds,
             const char* ingestStatus) {
  const double start = monoSeconds(), end = start + seconds;
  const double own0 = cpuSeconds(page, false), plots0 = cpuSeconds(page, true), ref0 = childSeconds();
  const long rss0 = rssKiB(page);
  std::atomic<int> failed(0);
  std::vector<std::thread> viewers;
  for (int v = 0; v < nviewers; ++v) viewers.emplace_back(view, port, std::cref(stations), end, &failed);
  int asked = 0;
  for (double next = start; next < end; next += kRefresh, ++asked) {
    const pid_t status = spawn({ingestStatus, "--json"}, nullptr);
    waitpid(status, nullptr, 0);
    const double pause = next + kRefresh - monoSeconds();
    if (pause > 0) usleep(static_cast<useconds_t>(pause * 1e6));
  }
  for (auto& t : viewers) t.join();
  const double span = monoSeconds() - start, ref = childSeconds() - ref0;
  const double own = cpuSeconds(page, false) - own0, plots = cpuSeconds(page, true) - plots0;
  printf("%zu stations, %d viewers, %.0f s (status every %d s, plots every %d s), %d requests failed\n",
         stations.size(), nviewers, span, kRefresh, kPlotPeriod, failed.load());
  printf("station_page: %.2f%% of a core itself, %.2f%% more in the cal_dump runs drawing its plots\n",
         100 * own / span, 100 * plots / span);
  printf("station_page resident memory: %ld KiB at the start, %ld KiB at the end\n", rss0, rssKiB(page));
  printf("reference, ingest_status --json every %d s (%d runs): %.2f%% of a core\n", kRefresh, asked, 100 * ref / span);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: %s INGEST STATION_PAGE CAL_DUMP INGEST_STATUS [stations=16] [viewers=4] [seconds=180]\n",
            argv[0]);
    return 2;
  }
  const int nstations = argc > 5 ? atoi(argv[5]) : 16, nviewers = argc > 6 ? atoi(argv[6]) : 4;
  const int seconds = argc > 7 ? atoi(argv[7]) : 180;
  char root[] = "/tmp/station-page-bench-XXXXXX";
  if (!mkdtemp(root)) return perror("mkdtemp"), 1;
  signal(SIGPIPE, SIG_IGN);
  const int first = 5000 + static_cast<int>(getpid() % 1000) * 32;
  std::vector<std::string> stations, ttys;
  std::vector<int> masters;
  for (int i = 0; i < nstations; ++i) stations.push_back("bench" + std::to_string(i));
  const std::vector<int> slaves = openPorts(nstations, &masters, &ttys);
  makeSite(root, stations, ttys, first);
  const std::vector<pid_t> ingests = startIngests(argv[1], stations, ttys, slaves, first);
  std::atomic<bool> done(false);
  std::thread feeder(feed, std::cref(masters), std::cref(done));
  pid_t page = -1;
  const unsigned short port = startPage(argv[2], argv[3], &page);
  if (port != 0) {
    sleep(5);  // the Ingests' rates settle
    measure(port, page, stations, nviewers, seconds, argv[4]);
  }
  done = true;
  feeder.join();
  if (page > 0) kill(page, SIGTERM), waitpid(page, nullptr, 0);
  for (pid_t p : ingests) kill(p, SIGTERM);
  for (pid_t p : ingests) waitpid(p, nullptr, 0);
  return port != 0 && system((std::string("rm -rf ") + root).c_str()) == 0 ? 0 : 1;
}
