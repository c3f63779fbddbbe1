// A small acquisition-module server for the tests: it answers all fourteen
// procedures from a fixed description of one module, "tern1", and serves an
// environment table given on the command line as NAME=VALUE arguments.
//
//   ternserver_test_server [NAME=VALUE ...]
//
// It registers with the rpcbind on 127.0.0.1, prints "ready" on stdout, and
// serves until SIGTERM or SIGINT, when it withdraws its registration.
#include <stdio.h>
#include <string.h>
#include <termios.h>
#include <time.h>

#include <map>
#include <string>
#include <vector>

#include "rpc_server_loop.h"
#include "rpc/ternserver.h"

extern "C" void ternserver_1(struct svc_req* rqstp, SVCXPRT* transp);

namespace {

const char kModule[] = "tern1";

std::map<std::string, std::string> environment;
std::map<std::string, int> intSettings = {{"nmodules", 1}, {"fastoutRate", 20}};
std::map<std::string, std::string> stringSettings = {{"site", "flux-site-a"}, {"archiveDir", "/data/raw"}};

// Archiving jobs by module name, as last started or stopped.
struct Job {
  std::string ternName, server, tapeDevice;
  int status;
};
std::map<std::string, Job> jobs;

// Results live until the next call of the same procedure; each handler keeps
// the strings its answer points into.
char* text(std::string& s) { return &s[0]; }

// True for the one module; otherwise sets the reply's error code and text.
bool known(char** name, int* ierr, char** errmsg) {
  if (*name != nullptr && strcmp(*name, kModule) == 0) return true;
  static std::string err;
  err = std::string("no such module: ") + (*name ? *name : "");
  *ierr = 1;
  *errmsg = text(err);
  return false;
}

}  // namespace

extern "C" {

siocfg_res* getsiocfg_1_svc(char** name, struct svc_req*) {
  static siocfg_res res;
  static std::vector<siocfg> nodes;
  static std::vector<std::string> strings;
  memset(&res, 0, sizeof res);
  if (!known(name, &res.ierr, &res.siocfg_res_u.errmsg)) return &res;
  strings = {"%d,%d,%d", "\r\n", "", "\x55\xaa", "", ""};
  nodes.assign(3, siocfg());
  nodes[0] = {nullptr, 9600, CS8, text(strings[0]), text(strings[1]), 1, '\n', 3, 0, ASCII};
  nodes[1] = {nullptr, 19200, CS8 | PARENB, text(strings[2]), text(strings[3]), 2, 3, 4, 12, BINARY};
  nodes[2] = {nullptr, 38400, CS7 | PARENB | PARODD | CSTOPB, text(strings[4]), text(strings[5]), 5, 0, 1, 2,
              PROMPTEDBINARY};
  nodes[0].next = &nodes[1];
  nodes[1].next = &nodes[2];
  res.siocfg_res_u.list = &nodes[0];
  return &res;
}

configint_res* configint_1_svc(char** name, struct svc_req*) {
  static configint_res res;
  static std::string err;
  memset(&res, 0, sizeof res);
  auto it = intSettings.find(*name ? *name : "");
  if (it == intSettings.end()) {
    err = std::string("no such setting: ") + (*name ? *name : "");
    res.ierr = 1;
    res.configint_res_u.errmsg = text(err);
  } else {
    res.configint_res_u.value = it->second;
  }
  return &res;
}

int* rdate_1_svc(void*, struct svc_req*) {
  static int res;
  res = static_cast<int>(time(nullptr));
  return &res;
}

char** getternserverenv_1_svc(char** name, struct svc_req*) {
  static std::string value;
  static char* res;
  auto it = environment.find(*name ? *name : "");
  value = it == environment.end() ? std::string() : it->second;
  res = text(value);
  return &res;
}

analogcfg_res* getanalogcfg_1_svc(char** name, struct svc_req*) {
  static analogcfg_res res;
  static analogcfg nodes[2];
  memset(&res, 0, sizeof res);
  if (!known(name, &res.ierr, &res.analogcfg_res_u.errmsg)) return &res;
  nodes[0] = {&nodes[1], 0, 20};
  nodes[1] = {nullptr, 1, 10};
  res.analogcfg_res_u.list = &nodes[0];
  return &res;
}

int* rgmtmsecs_1_svc(void*, struct svc_req*) {
  static int res;
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  res = static_cast<int>((ts.tv_sec % 86400) * 1000 + ts.tv_nsec / 1000000);
  return &res;
}

configstring_res* configstring_1_svc(char** name, struct svc_req*) {
  static configstring_res res;
  static std::string value;
  memset(&res, 0, sizeof res);
  auto it = stringSettings.find(*name ? *name : "");
  if (it == stringSettings.end()) {
    value = std::string("no such setting: ") + (*name ? *name : "");
    res.ierr = 1;
  } else {
    value = it->second;
  }
  res.value = text(value);
  return &res;
}

}  // extern "C"

namespace {

// Status of a job: 1 tape running, 2 disk running, 0 stopped.
int* record(const blazingArchive* a, int status) {
  static int res;
  Job& j = jobs[a->ternName ? a->ternName : ""];
  j = {a->ternName ? a->ternName : "", a->server ? a->server : "", a->tapeDevice ? a->tapeDevice : "", status};
  res = 0;
  return &res;
}

}  // namespace

extern "C" {

int* startblazingtape_1_svc(blazingArchive* a, struct svc_req*) { return record(a, 1); }
int* stopblazingtape_1_svc(blazingArchive* a, struct svc_req*) { return record(a, 0); }
int* startblazingdisk_1_svc(blazingArchive* a, struct svc_req*) { return record(a, 2); }
int* stopblazingdisk_1_svc(blazingArchive* a, struct svc_req*) { return record(a, 0); }

blazingArchive_res* getblazingstatus_1_svc(char** name, struct svc_req*) {
  static blazingArchive_res res;
  static Job job;
  static std::string err;
  memset(&res, 0, sizeof res);
  auto it = jobs.find(*name ? *name : "");
  if (it == jobs.end()) {
    err = std::string("no archive job for ") + (*name ? *name : "");
    res.ierr = 1;
    res.blazingArchive_res_u.errmsg = text(err);
    return &res;
  }
  job = it->second;
  res.blazingArchive_res_u.archive = {text(job.ternName), text(job.server), text(job.tapeDevice), job.status};
  return &res;
}

ttl_output_cfg_res* get_ttl_output_cfg_1_svc(char** name, struct svc_req*) {
  static ttl_output_cfg_res res;
  static ttl_output_cfg nodes[2];
  memset(&res, 0, sizeof res);
  if (!known(name, &res.ierr, &res.ttl_output_cfg_res_u.errmsg)) return &res;
  nodes[0] = {0, 100, 900, 0, &nodes[1]};
  nodes[1] = {500, 250, 750, 3, nullptr};
  res.ttl_output_cfg_res_u.list = &nodes[0];
  return &res;
}

etc_hosts_res* etc_hosts_1_svc(void*, struct svc_req*) {
  static etc_hosts_res res;
  static etc_hosts_entry nodes[2];
  static std::string strings[4];
  memset(&res, 0, sizeof res);
  strings[0] = "127.0.0.1";
  strings[1] = "localhost";
  strings[2] = "192.0.2.7";
  strings[3] = "tern1";
  nodes[0] = {text(strings[0]), text(strings[1]), &nodes[1]};
  nodes[1] = {text(strings[2]), text(strings[3]), nullptr};
  res.etc_hosts_res_u.list = &nodes[0];
  return &res;
}

}  // extern "C"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* eq = strchr(argv[i], '=');
    if (eq == nullptr || eq == argv[i]) {
      fprintf(stderr, "usage: %s [NAME=VALUE ...]\n", argv[0]);
      return 2;
    }
    environment[std::string(argv[i], static_cast<size_t>(eq - argv[i]))] = eq + 1;
  }
  rpctest::setUpSignals();
  SVCXPRT* xprt = rpctest::serveOnLoopback(TERNSERVER, TERNSERVERVERS, ternserver_1);
  rpctest::announceReady();
  rpctest::runLoop(0, nullptr);
  rpctest::unregister(TERNSERVER, TERNSERVERVERS);
  svc_unreg(TERNSERVER, TERNSERVERVERS);
  svc_destroy(xprt);
  return 0;
}
