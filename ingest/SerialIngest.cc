#include "SerialIngest.h"

#include <syslog.h>
#include <unistd.h>

#include <memory>

#include "base/logit.h"
#include "detach.h"
#include "port/opentty.h"
#include "site/IngestConfig.h"  // _cfg is destroyed here

SerialIngest* SerialIngest::_instance = nullptr;

SerialIngest::SerialIngest(int argc, char** argv)
    : _appname(argv[0]), _rstr(argc, argv), _interrupt(0), _reconfig(0) {
  _instance = this;
}

SerialIngest::~SerialIngest() {
  if (_instance == this) _instance = nullptr;
}

int SerialIngest::run() { return _rstr.daemon ? daemonMode() : debugMode(); }

int SerialIngest::debugMode() {
  syslogit = 0;
  // A set-user-id copy must not open a port its user could not open.
  if (!dropPrivileges(getuid(), getgid())) {
    logit(LOG_ERR, "%s: cannot give up set-user-id privileges: %m", _appname);
    return -1;
  }
  std::unique_ptr<TTy> tty = opentty(_rstr.ttyname, _rstr.lineSettings());
  switch (_rstr.output) {
    case SerialIngestRunstring::OCTCHAR: return octout(tty.get());
    case SerialIngestRunstring::HEX: return hexout(tty.get());
    default: return sampleOutput(tty.get());
  }
}
