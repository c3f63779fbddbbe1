#include "calconfig/ChannelConfig.h"

#include <stdio.h>
#include <string.h>

#include "base/fatal.h"
#include "base/logit.h"

namespace {

[[noreturn]] void fail(const char* what, const std::string& name) {
  logit(LOG_ERR, "%s%s", what, name.c_str());
  exit_status_1();
}

}  // namespace

ChannelConfig::ChannelConfig(const SidEntry* sep, int isIndexChannel, HeronDataIds* dp)
    : sid(sep),
      calib_func(calib_function(sep->calib_name.c_str())),
      init_func(nullptr),
      rate(static_cast<float>(sep->rate)),
      nsub(sep->n_prefixes()),
      nCalibParams(sep->n_calib_params()),
      sampleType(sep->sid_channel >= 1 && sep->sid_channel <= 199 ? ANALOG : SERIAL),
      channel(sep->sid_channel),
      indexOnly(isIndexChannel) {
  if (!calib_func) fail("Can't find calibration function named ", sep->calib_name);
  init_func = init_function(sep->calib_name.c_str());
  if (!init_func) fail("Can't find initialization function for ", sep->calib_name);
  dids.assign(static_cast<size_t>(nsub), nullptr);
  nonLaggedDids.assign(static_cast<size_t>(nsub), nullptr);
  laggedDids.assign(static_cast<size_t>(nsub), nullptr);
  multiplexChanConfigs.assign(static_cast<size_t>(nsub), nullptr);
  for (int i = 0; i < nsub; ++i) {
    const std::string name = sep->DidName(i);
    if (sep->prefixes[static_cast<size_t>(i)] == "null" || name.compare(0, 5, "null.") == 0) continue;
    HeronDataId* id = (*dp)[name.c_str()];
    if (!id) fail("Can't find did index in did.config for ", name);
    const size_t k = static_cast<size_t>(i);
    dids[k] = id;
    if (id->phase && id->phase->NonZeroLag()) {
      laggedDids[k] = id;
      ++nLagged;
    } else {
      nonLaggedDids[k] = id;
      ++nonLagged;
    }
  }
}

ChannelConfig::~ChannelConfig() {
  if (cinfo) FreeCalibInfo(cinfo);
}
