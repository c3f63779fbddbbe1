#include "time/TTConv.h"

#include "base/Exception.h"
#include "base/logit.h"
#include "site/channels.h"

TTtype TTConv::_ttType = unknown;

void TTConv::init() {
  channel_list channels("$HERON/projects/$PROJECT/$OPS/channel_config");
  _ttType = channels.timeTagType();
}

void TTConv::firstUse() {
  try {
    init();
  } catch (const oru::Exception& e) {
    _ttType = channel_list::processTimeTagType();
    logit(LOG_WARNING, "%s; time tags are read as %s", e.toString().c_str(),
          _ttType == wierd12 ? "wierd12" : "msecs");
  }
}
