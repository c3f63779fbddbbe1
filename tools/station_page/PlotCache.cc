#include "PlotCache.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <new>
#include <sstream>

#include "base/clock.h"
#include "base/logit.h"
#include "calconf/SidList.h"
#include "site/heron_fopen.h"
#include "status/StationView.h"

extern char** environ;

namespace {

const double kSpan = 3600;  // the last hour
const int kDrawLimit = 50;  // seconds a drawing may take, within the minute it is kept

// The whole file, or "" with *ok false.
std::string slurp(const std::string& path, bool* ok) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  *ok = static_cast<bool>(in) || in.eof();
  return text.str();
}

// The site's list: station -> variables; empty when there is no list.
std::map<std::string, std::vector<std::string>> readList(const std::string& name) {
  std::map<std::string, std::vector<std::string>> list;
  char* expanded = heron_expand_name(name.c_str());
  if (expanded == nullptr) throw std::bad_alloc();
  const std::string path = expanded;
  free(expanded);
  std::ifstream in(path);
  if (!in) {
    if (errno != ENOENT) logit(LOG_WARNING, "%s: %s; plotting every variable", path.c_str(), strerror(errno));
    return list;
  }
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    std::string station, variable;
    if (!(words >> station)) continue;
    while (words >> variable) list[station].push_back(variable);
  }
  return list;
}

// Waits for the child pid, killing it when it has run `seconds`; its wait
// status, or -1 with errno (ETIMEDOUT for a child killed).
int waitLimited(pid_t pid, int seconds) {
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));  // this glibc's header lacks C linkage
  if (fd < 0) logit(LOG_WARNING, "pidfd_open(%d): %m; waiting for the drawing without a limit", pid);
  struct pollfd p = {fd, POLLIN, 0};
  int ready = 0;
  while (fd >= 0 && (ready = poll(&p, 1, seconds * 1000)) < 0 && errno == EINTR) {
  }
  const bool late = fd >= 0 && ready == 0;
  if (late) kill(pid, SIGKILL);
  if (fd >= 0) close(fd);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return -1;
  if (late) errno = ETIMEDOUT;
  return late ? -1 : status;
}

// Runs argv with standard output thrown away and standard error to errPath;
// its wait status, or -1 when it could not be started.
int run(const std::vector<std::string>& args, const std::string& errPath) {
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  int err = posix_spawn_file_actions_init(&files);
  if (err != 0) {
    errno = err;
    return -1;
  }
  pid_t pid;
  if ((err = posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0)) == 0 &&
      (err = posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0)) == 0 &&
      (err = posix_spawn_file_actions_addopen(&files, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                              0600)) == 0)
    err = posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (err != 0) {
    errno = err;
    return -1;
  }
  return waitLimited(pid, kDrawLimit);
}

}  // namespace

std::map<std::string, std::vector<std::string>> heron::plotVariables(const std::vector<std::string>& stations,
                                                                     const std::string& listFile,
                                                                     const std::string& prepConfig) {
  std::map<std::string, std::vector<std::string>> chosen = readList(listFile), out;
  std::unique_ptr<SidList> sensors;
  for (const auto& station : stations) {
    std::vector<std::string>& vars = out[station];
    if (chosen.count(station) != 0) {
      vars = chosen[station];
      continue;
    }
    if (!sensors) sensors.reset(new SidList(prepConfig.c_str()));
    for (int chan : sensors->TernChannels(station.c_str()))
      for (const SidEntry* sid : sensors->sids_from_tern_chan(station.c_str(), chan))
        for (int i = 0; i < sid->n_prefixes(); ++i)
          if (sid->prefixes[static_cast<size_t>(i)] != "null") vars.push_back(sid->DidName(i));
    if (vars.empty()) out.erase(station);
  }
  return out;
}

heron::PlotCache::PlotCache(std::string program, std::string dir,
                            const std::map<std::string, std::vector<std::string>>& variables, double period)
    : program_(std::move(program)), dir_(std::move(dir)), period_(period) {
  for (const auto& v : variables) {
    plots_[v.first].reset(new Plot);
    plots_[v.first]->variables = v.second;
  }
}

bool heron::PlotCache::image(const std::string& station, std::string* png) {
  Plot& plot = *plots_.at(station);
  std::lock_guard<std::mutex> hold(plot.mutex);
  if (!plot.drawn || monotonicSeconds() - plot.at >= period_) {
    draw(station, plot);
    plot.drawn = true;
    plot.at = monotonicSeconds();
  }
  *png = plot.body;
  return plot.ok;
}

void heron::PlotCache::draw(const std::string& station, Plot& plot) {
  const double now = wallSeconds();
  const std::string path = dir_ + "/" + station + ".png", errPath = dir_ + "/" + station + ".err";
  std::vector<std::string> args = {program_, "-s", isoTime(now - kSpan), "-e", isoTime(now), "-F", "CSV",
                                   "--plot", path};
  args.insert(args.end(), plot.variables.begin(), plot.variables.end());
  const int status = run(args, errPath);
  bool read = false;
  if (status < 0) {
    plot.ok = false;
    plot.body = program_ + (errno == ETIMEDOUT ? ": still drawing after " + std::to_string(kDrawLimit) + " s, stopped"
                                               : ": " + std::string(strerror(errno)));
  } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    plot.body = slurp(path, &read);
    plot.ok = read && !plot.body.empty();
    if (!plot.ok) plot.body = path + ": cannot be read";
  } else {
    plot.ok = false;
    plot.body = slurp(errPath, &read);
    while (!plot.body.empty() && plot.body.back() == '\n') plot.body.pop_back();
    if (plot.body.empty()) plot.body = program_ + " failed";
  }
  if (!plot.ok) logit(LOG_WARNING, "the plot of %s: %s", station.c_str(), plot.body.c_str());
}
