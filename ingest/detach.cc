#include "detach.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include "base/fatal.h"
#include "base/logit.h"

void disassociate() {
  pid_t pid = fork();
  if (pid < 0) {
    logit(LOG_ERR, "cannot fork: %m");
    exit_status_1();
  }
  if (pid > 0) exit(0);

  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) < 0 || rl.rlim_cur == 0) exit_status_1();
  unsigned int last = rl.rlim_cur > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(rl.rlim_cur - 1);
  if (close_range(0, last, 0) < 0) {
    for (unsigned int fd = 0; fd <= last && fd < 65536; ++fd) close(static_cast<int>(fd));
  }

  // All three on /dev/null, so that no port opened later can become
  // descriptor 0, 1 or 2 and receive stray messages.  The console comes
  // later (attachConsole), once no privilege is left to open it with.
  int null = open("/dev/null", O_RDWR);
  if (null != 0 || dup2(null, 1) < 0 || dup2(null, 2) < 0) {
    logit(LOG_ERR, "/dev/null: %m");
    exit_status_1();
  }
  if (setsid() < 0) logit(LOG_ERR, "setsid: %m");
}

void attachConsole() {
  int console = open("/dev/console", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (console < 0) return;
  // dup2 leaves the copies inheritable: the children report there too.
  if (dup2(console, 1) < 0 || dup2(console, 2) < 0) logit(LOG_ERR, "dup2(/dev/console): %m");
  close(console);
}

const char* const kSystemPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

bool privilegedCopy() { return getuid() != geteuid() || getgid() != getegid(); }

bool raisePriority(const char* appname, int* childNice) {
  // Only root may raise the priority, so a set-user-id-root program does it
  // now and then gives root up.  setuid(0) makes every id root, so the real
  // ids are taken first.
  const uid_t realUid = getuid();
  const gid_t realGid = getgid();
  *childNice = kInheritNice;
  if (setuid(0) < 0) {
    if (geteuid() == 0)
      logit(LOG_ERR, "setuid(0): %m");
    else
      logit(LOG_WARNING, "%s is not suid-to-root, cannot use real-time priority", appname);
  } else {
    pid_t pid = getpid();
    errno = 0;
    int nice = getpriority(PRIO_PROCESS, pid);
    if (nice < 0 && errno != 0) {
      logit(LOG_WARNING, "getpriority(PRIO_PROCESS,%d): %m", static_cast<int>(pid));
    } else {
      int raised = nice - 10 < -20 ? -20 : nice - 10;
      if (setpriority(PRIO_PROCESS, pid, raised) < 0)
        logit(LOG_WARNING, "setpriority(PRIO_PROCESS,%d,%d): %m", static_cast<int>(pid), raised);
      else if (realUid != 0)
        *childNice = nice;  // a user's own program gets no raised priority
    }
  }
  if (!dropPrivileges(realUid, realGid)) {
    logit(LOG_ERR, "setuid(): %m");
    return false;
  }
  return true;
}

bool dropPrivileges(uid_t uid, gid_t gid) {
  if (setresgid(gid, gid, gid) < 0 || setresuid(uid, uid, uid) < 0) return false;
  uid_t r, e, s;
  gid_t rg, eg, sg;
  if (getresuid(&r, &e, &s) < 0 || getresgid(&rg, &eg, &sg) < 0) return false;
  if (r != uid || e != uid || s != uid || rg != gid || eg != gid || sg != gid) {
    errno = EPERM;
    return false;
  }
  return true;
}
